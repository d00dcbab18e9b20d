// las/laz_layers_dec.cpp
#include "las/laz_layers_impl.h"

namespace veld {
std::vector<std::unique_ptr<LayerItem<ArithDecoder>>> make_layer_decoders(const LASzip& scheme) {
  return make_layer_items<ArithDecoder>(scheme);
}
}  // namespace veld
