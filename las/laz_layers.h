// las/laz_layers.h
// The items of layered chunks: each part of the record in streams of its own, and all state once per scanner
// channel.
// Here:     LayerItem, a run of points of one item. Private to the codec's sources.
// Not here: the parts' coding (laz_point14.h, laz_items14.h), chunks and buffers (laz_decoder.cpp, ...).
#pragma once
#include <memory>
#include <vector>

#include "las/laz_arith.h"
#include "las/laz_scheme.h"

namespace veld {
constexpr unsigned LAZ_NCHANNELS = 4;
constexpr uint64_t LAZ_LAYER_BLOCK = 64;  // points between two checks of the layers' ends

template <class C>
struct Layer {
  C coder;
  bool active = false;  // decoder: there is a stream, and it is wanted; encoder: a value was not the last one
  bool constant = false;  // encoder: no value of the chunk is another, so the layer will be left out

  bool coded() const { return C::encoding ? !constant : active; }
};

template <class C>
class LayerItem {
 public:
  virtual ~LayerItem() = default;
  virtual unsigned size() const = 0;  // bytes in the record
  virtual unsigned nlayers() const = 0;
  virtual unsigned max_bytes() const = 0;            // of one point in any one layer
  virtual uint32_t field(unsigned layer) const = 0;  // its LazField, 0 for a layer that is always decoded
  virtual void start(const uint8_t* first, unsigned channel) = 0;
  // Tells an encoder's layers about the n records of its chunk; `records` points at the item in the first
  // one.
  virtual void look_ahead(Layer<C>*, const uint8_t* /*records*/, unsigned /*stride*/, uint64_t /*n*/) {}
  // Codes this item of n (up to LAZ_LAYER_BLOCK) records; `records` points at the item in the first one. The
  // first item of a list fills `contexts`, one per point: which channel's state the others have to use.
  virtual void run(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
                   uint8_t* contexts) = 0;
};

// The items of a checked scheme, in record order.
std::vector<std::unique_ptr<LayerItem<ArithDecoder>>> make_layer_decoders(const LASzip& scheme);
std::vector<std::unique_ptr<LayerItem<ArithEncoder>>> make_layer_encoders(const LASzip& scheme);
}  // namespace veld
