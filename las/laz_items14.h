// las/laz_items14.h
// The items behind POINT14: colours, near infrared, wave packets and extra bytes, in layers.
// Private to the codec's sources.
#pragma once
#include "las/laz_codec.h"
#include "las/laz_layers.h"
#include "las/laz_rgb.h"
#include "las/laz_wave.h"

namespace veld {
// The state of one item per channel: models, and the last item as prediction.
template <class Models, unsigned SIZE>
struct ChannelStates {
  struct State {
    Models models;
    uint8_t last[SIZE];
  };
  std::unique_ptr<State> states[LAZ_NCHANNELS];
  bool used[LAZ_NCHANNELS];
  unsigned current;
  bool own_channel;  // version 4

  void create(unsigned channel, const uint8_t* seed) {
    if (!states[channel]) states[channel] = std::make_unique<State>();
    used[channel] = true;
    states[channel]->models.init();
    std::memmove(states[channel]->last, seed, SIZE);
  }
  void start(const uint8_t* first, unsigned channel) {
    for (bool& u : used) u = false;
    current = channel;
    create(channel, first);
  }
  // Makes the channel's models current, and gives the item that is the prediction of the next point and takes
  // its value. On a switch to a channel in use this is, up to version 3, still the item of the channel
  // before.
  uint8_t* enter(unsigned channel) {
    uint8_t* last = states[current]->last;
    if (channel != current) [[unlikely]] {
      current = channel;
      const bool fresh = !used[channel];
      if (fresh) create(channel, last);
      if (fresh || own_channel) last = states[channel]->last;
    }
    return last;
  }
  Models& models() { return states[current]->models; }
};

template <class C>
struct NirModels {
  static constexpr unsigned MAX_BYTES = 3 * ARITH_SYMBOL_BYTES;
  typename C::template Symbols<4> used;
  typename C::template Symbols<256> low, high;

  void init() {
    used.init();
    low.init();
    high.init();
  }
  LAZ_INLINE uint32_t code(C& c, uint32_t last, uint32_t& now) {
    uint32_t s = 0;
    if constexpr (C::encoding) s = (low_byte(last ^ now) != 0) | (high_byte(last ^ now) != 0) << 1;
    s = c.symbol(used, s);
    uint32_t lo = low_byte(last), hi = high_byte(last);
    if (s & 1) lo = (lo + c.symbol(low, (now - last) & 255)) & 255;
    if (s & 2) hi = (hi + c.symbol(high, ((now >> 8) - (last >> 8)) & 255)) & 255;
    now = hi << 8 | lo;
    return s;
  }
};

// RGB14, and with WITH_NIR RGBNIR14, whose near infrared is a second layer.
template <class C, bool WITH_NIR>
class Rgb14Item final : public LayerItem<C> {
 public:
  explicit Rgb14Item(bool own_channel) { states_.own_channel = own_channel; }
  unsigned size() const override { return SIZE; }
  unsigned nlayers() const override { return WITH_NIR ? 2 : 1; }
  unsigned max_bytes() const override { return RgbModels<C>::MAX_BYTES; }
  uint32_t field(unsigned layer) const override { return layer == 0 ? LAZ_RGB : LAZ_NIR; }
  void start(const uint8_t* first, unsigned channel) override { states_.start(first, channel); }

  void run(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
           uint8_t* contexts) override {
    has_bit_instructions() ? run_fast(layers, records, stride, n, contexts)
                           : run_plain(layers, records, stride, n, contexts);
  }

 private:
  static constexpr unsigned SIZE = WITH_NIR ? 8 : 6;
  struct Models {
    RgbModels<C> rgb;
    NirModels<C> nir;
    void init() {
      rgb.init();
      if constexpr (WITH_NIR) nir.init();
    }
  };

  LAZ_BIT_INSTRUCTIONS void run_fast(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
                                     uint8_t* contexts) {
    run_any(layers, records, stride, n, contexts);
  }
  void run_plain(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
                 uint8_t* contexts) {
    run_any(layers, records, stride, n, contexts);
  }
  LAZ_INLINE void run_any(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
                          const uint8_t* contexts) {
    Layer<C> rgb = layers[0], nir;
    if constexpr (WITH_NIR) nir = layers[1];
    for (uint64_t i = 0; i < n; i++, records += stride) {
      uint8_t* last = states_.enter(contexts[i]);
      code_rgb(rgb, last, records);
      if constexpr (WITH_NIR) code_nir(nir, last + 6, records + 6);
    }
    layers[0] = rgb;
    if constexpr (WITH_NIR) layers[1] = nir;
  }

  LAZ_INLINE void code_rgb(Layer<C>& layer, uint8_t* last, typename C::Byte* record) {
    Rgb now{};
    if constexpr (C::encoding) {
      now = laz_get<Rgb>(record);
      layer.active |= states_.models().rgb.code(layer.coder, laz_get<Rgb>(last), now) != 0;
    } else {
      now = laz_get<Rgb>(last);
      if (layer.active) states_.models().rgb.code(layer.coder, laz_get<Rgb>(last), now);
      laz_put(record, now);
    }
    laz_put(last, now);
  }
  LAZ_INLINE void code_nir(Layer<C>& layer, uint8_t* last, typename C::Byte* record) {
    const uint32_t before = laz_get<uint16_t>(last);
    uint32_t now = before;
    if constexpr (C::encoding) {
      now = laz_get<uint16_t>(record);
      layer.active |= states_.models().nir.code(layer.coder, before, now) != 0;
    } else {
      if (layer.active) states_.models().nir.code(layer.coder, before, now);
      laz_put(record, uint16_t(now));
    }
    laz_put(last, uint16_t(now));
  }

  ChannelStates<Models, SIZE> states_{};
};

template <class C>
class Wave14Item final : public LayerItem<C> {
 public:
  explicit Wave14Item(bool own_channel) { states_.own_channel = own_channel; }
  unsigned size() const override { return LAZ_WAVE_SIZE; }
  unsigned nlayers() const override { return 1; }
  unsigned max_bytes() const override { return WaveModels<C>::MAX_BYTES; }
  uint32_t field(unsigned) const override { return LAZ_WAVE; }
  void start(const uint8_t* first, unsigned channel) override { states_.start(first, channel); }

  void run(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
           uint8_t* contexts) override {
    for (uint64_t i = 0; i < n; i++, records += stride) {
      uint8_t* last = states_.enter(contexts[i]);
      if constexpr (C::encoding) {
        layers[0].active |= std::memcmp(last, records, LAZ_WAVE_SIZE) != 0;
        layers[0].coder = states_.models().code(layers[0].coder, last, records);
      } else if (layers[0].active) {
        layers[0].coder = states_.models().code(layers[0].coder, last, records);
      } else {
        std::memcpy(records, last, LAZ_WAVE_SIZE);
      }
    }
  }

 private:
  ChannelStates<WaveModels<C>, LAZ_WAVE_SIZE> states_{};
};

// Extra bytes: a layer each.
template <class C>
class Byte14Item final : public LayerItem<C> {
 public:
  Byte14Item(unsigned size, bool own_channel) : size_(size), own_channel_(own_channel) {}
  unsigned size() const override { return size_; }
  unsigned nlayers() const override { return size_; }
  unsigned max_bytes() const override { return ARITH_SYMBOL_BYTES; }
  uint32_t field(unsigned) const override { return LAZ_BYTES; }

  void start(const uint8_t* first, unsigned channel) override {
    generation_++;
    for (State& state : states_) state.used = false;
    current_ = channel;
    create(channel, first);
  }

  void run(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
           uint8_t* contexts) override {
    for (uint64_t i = 0, end = 0; i < n; i = end) {  // points that share a state
      uint8_t* last = enter(contexts[i]);
      end = i + 1;
      if (last == states_[current_].last.data())
        while (end < n && contexts[end] == contexts[i]) end++;
      for (unsigned b = 0; b < size_; b++) {
        typename C::Byte* at = records + i * stride + b;
        if (!layers[b].coded()) {
          fill(at, stride, end - i, last[b]);
          continue;
        }
        Symbols& model = states_[current_].models[b];
        model.init_once(generation_);
        has_bit_instructions() ? run_fast(layers[b], model, last[b], at, stride, end - i)
                               : run_plain(layers[b], model, last[b], at, stride, end - i);
      }
    }
  }

 private:
  using Symbols = typename C::template Symbols<256>;

  LAZ_BIT_INSTRUCTIONS static void run_fast(Layer<C>& layer, Symbols& model, uint8_t& last,
                                            typename C::Byte* at, unsigned stride, uint64_t n) {
    run_any(layer, model, last, at, stride, n);
  }
  static void run_plain(Layer<C>& layer, Symbols& model, uint8_t& last, typename C::Byte* at, unsigned stride,
                        uint64_t n) {
    run_any(layer, model, last, at, stride, n);
  }
  static LAZ_INLINE void run_any(Layer<C>& layer, Symbols& model, uint8_t& last, typename C::Byte* at,
                                 unsigned stride, uint64_t n) {
    C c = layer.coder;
    uint32_t value = last, changed = 0;
    for (uint64_t i = 0; i < n; i++, at += stride) {
      uint32_t diff = 0;
      if constexpr (C::encoding) diff = (*at - value) & 255;
      diff = c.symbol(model, diff);
      changed |= diff;
      value = (value + diff) & 255;
      if constexpr (!C::encoding) *at = uint8_t(value);
    }
    last = uint8_t(value);
    layer.coder = c;
    if constexpr (C::encoding) layer.active |= changed != 0;
  }
  static void fill(typename C::Byte* at, unsigned stride, uint64_t n, uint8_t value) {
    if constexpr (!C::encoding)
      for (uint64_t i = 0; i < n; i++) at[i * stride] = value;
  }

  struct State {
    std::vector<Symbols> models;
    std::vector<uint8_t> last;
    bool used = false;
  };

  void create(unsigned channel, const uint8_t* seed) {
    State& state = states_[channel];
    if (state.models.empty()) state.models.resize(size_);
    state.last.assign(seed, seed + size_);
    state.used = true;
  }
  uint8_t* enter(unsigned channel) {  // as ChannelStates::enter
    uint8_t* last = states_[current_].last.data();
    if (channel != current_) [[unlikely]] {
      current_ = channel;
      const bool fresh = !states_[channel].used;
      if (fresh) create(channel, last);
      if (fresh || own_channel_) last = states_[channel].last.data();
    }
    return last;
  }

  unsigned size_;
  bool own_channel_;
  uint32_t generation_ = 0;
  unsigned current_ = 0;
  State states_[LAZ_NCHANNELS];
};
}  // namespace veld
