// las/laz_layers_impl.h
// From a scheme to its layered items. Included by laz_layers_dec.cpp and laz_layers_enc.cpp only.
#pragma once
#include "las/laz_items14.h"
#include "las/laz_point14.h"

namespace veld {
template <class C>
std::vector<std::unique_ptr<LayerItem<C>>> make_layer_items(const LASzip& scheme) {
  std::vector<std::unique_ptr<LayerItem<C>>> items;
  for (const LazItem& item : scheme.items) {
    const bool own_channel =
        item.version >= 4;  // before, the items behind POINT14 mixed up the channels' states
    switch (item.type) {
      case LazType::point14:
        items.push_back(std::make_unique<Point14Item<C>>(own_channel));
        break;
      case LazType::rgb14:
        items.push_back(std::make_unique<Rgb14Item<C, false>>(own_channel));
        break;
      case LazType::rgbnir14:
        items.push_back(std::make_unique<Rgb14Item<C, true>>(own_channel));
        break;
      case LazType::wavepacket14:
        items.push_back(std::make_unique<Wave14Item<C>>(own_channel));
        break;
      default:
        items.push_back(std::make_unique<Byte14Item<C>>(item.size, own_channel));
        break;
    }
  }
  return items;
}
}  // namespace veld
