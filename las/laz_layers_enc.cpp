// las/laz_layers_enc.cpp
#include "las/laz_layers_impl.h"

namespace veld {
std::vector<std::unique_ptr<LayerItem<ArithEncoder>>> make_layer_encoders(const LASzip& scheme) {
  return make_layer_items<ArithEncoder>(scheme);
}
}  // namespace veld
