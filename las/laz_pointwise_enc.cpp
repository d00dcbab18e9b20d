// las/laz_pointwise_enc.cpp
#include "las/laz_pointwise_impl.h"

namespace veld {
std::unique_ptr<PointItems<ArithEncoder>> make_point_encoder(const LASzip& scheme) {
  return make_fixed_items<ArithEncoder>(scheme);
}
}  // namespace veld
