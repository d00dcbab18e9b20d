// las/laz_point14.h
// POINT14: the 30 bytes that point formats 6 to 10 share, in nine layers. Private to the codec's sources.
//
// A block of points is coded layer after layer, so that the coder's state stands in registers. The first
// layer finds out for each point which item predicts it: the latest of its scanner channel, whose fields are
// read where they lie, in the records.
#pragma once
#include "las/laz_codec.h"
#include "las/laz_gpstime.h"
#include "las/laz_layers.h"

namespace veld {
// Class of a return by number of returns (row) and return number.
inline constexpr char LAZ_RETURN_CLASS14[16][17] = {
    "0123453445555555", "1013333333333333", "2124444444433333", "3345444444444444",
    "4344544444444444", "5344454444444444", "3344445444444444", "4344444544444444",
    "4344444454444444", "5344444445444444", "5344444444544444", "5334444444455444",
    "5334444444455544", "5334444444445554", "5334444444444555", "5334444444444455"};

// What the layers need of the byte of return number (bits 0-3) and number of returns (4-7).
struct Returns14 {
  uint8_t kind;      // LAZ_RETURN_CLASS14
  uint8_t below;     // returns from the last one, up to 7
  uint8_t position;  // 2 first, 1 last, 3 only, 0 between
  uint8_t single;    // 1: one return
};
inline constexpr std::array<Returns14, 256> LAZ_RETURNS14 = [] {
  std::array<Returns14, 256> table{};
  for (int i = 0; i < 256; i++) {
    const int r = i & 15, n = i >> 4;
    table[size_t(i)] = {uint8_t(LAZ_RETURN_CLASS14[n][r] - '0'), uint8_t(std::min(n > r ? n - r : r - n, 7)),
                        uint8_t((r == 1 ? 2 : 0) + (r >= n ? 1 : 0)), uint8_t(n == 1)};
  }
  return table;
}();

template <class C>
class Point14Item final : public LayerItem<C> {
 public:
  // `own_channel`: the other items use the state of the point's channel (version 4); else that of channel 0,
  // but for points that switch to another channel, where they use its own (version 3).
  explicit Point14Item(bool own_channel) : own_channel_(own_channel) {}

  unsigned size() const override { return SIZE; }
  unsigned nlayers() const override { return 9; }
  unsigned max_bytes() const override { return 32; }
  uint32_t field(unsigned layer) const override {
    static constexpr uint32_t fields[9] = {0,         LAZ_Z,    LAZ_CLASS,  LAZ_FLAGS,  LAZ_INTENSITY,
                                           LAZ_ANGLE, LAZ_USER, LAZ_SOURCE, LAZ_GPSTIME};
    return fields[layer];
  }

  void start(const uint8_t* first, unsigned channel) override {
    generation_++;
    for (bool& used : used_) used = false;
    current_ = channel;
    Context& k = create(channel);
    std::memcpy(k.last, first, SIZE);
    last_[channel] = k.last;
    k.seed_z(first);
    k.seed_intensity(first);
    k.times.seed(laz_get<uint64_t>(first + TIME_AT));
  }

  void look_ahead(Layer<C>* layers, const uint8_t* records, unsigned stride, uint64_t n) override {
    uint64_t changed = 0;
    for (uint64_t i = 1; i < n; i++)
      changed |= laz_get<uint64_t>(records + 10) ^ laz_get<uint64_t>(records + i * stride + 10);
    const auto never = [changed](unsigned at, uint64_t bits) {
      return (changed >> 8 * (at - 10) & bits) == 0;
    };
    layers[CLASS].constant = never(CLASS_AT, 0xFF);
    layers[FLAGS].constant = never(FLAGS_AT, 0xFF & ~CHANNEL_BITS);
    layers[INTENSITY].constant = never(INTENSITY_AT, 0xFFFF);
    layers[USER].constant = never(USER_AT, 0xFF);
  }

  void run(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
           uint8_t* contexts) override {
    has_bit_instructions() ? run_fast(layers, records, stride, n, contexts)
                           : run_plain(layers, records, stride, n, contexts);
  }

 private:
  using Byte = typename C::Byte;
  template <int S>
  using Symbols = typename C::template Symbols<S>;
  enum LayerIndex { RETURNS_XY, Z, CLASS, FLAGS, INTENSITY, ANGLE, USER, SOURCE, TIME };
  // Bytes of the record. FLAGS: bits 0-3 classification flags, 4-5 channel, 6 scan direction, 7 edge.
  static constexpr unsigned X_AT = 0, Y_AT = 4, Z_AT = 8, INTENSITY_AT = 12, RETURNS_AT = 14, FLAGS_AT = 15,
                            CLASS_AT = 16, USER_AT = 17, ANGLE_AT = 18, SOURCE_AT = 20, TIME_AT = 22,
                            SIZE = 30;
  static constexpr uint32_t CHANNEL_BITS = 0x30;
  // Bits of the symbol that says what changed.
  static constexpr uint32_t RETURN_STEP = 3, N_RETURNS = 4, SCAN_ANGLE = 8, GPS_TIME = 16, SOURCE_ID = 32,
                            CHANNEL = 64;

  struct Context {       // of one channel
    uint8_t last[SIZE];  // the latest item, from one run to the next
    bool last_time_changed;
    int32_t last_z[8];
    uint16_t last_intensity[8];
    Median5 median_x[12], median_y[12];
    Symbols<128> changed_model[8];
    Symbols<3> channel_model;
    Symbols<16> n_model[16], r_model[16];
    Symbols<13> r_step_model;
    IntegerModel<C, 32, 2> dx_model;
    IntegerModel<C, 32, 22> dy_model;
    IntegerModel<C, 32, 20> z_model;
    Symbols<256> class_model[64];
    Symbols<64> flags_model[64];
    IntegerModel<C, 16, 4> intensity_model;
    IntegerModel<C, 16, 2> angle_model;
    Symbols<256> user_model[64];
    IntegerModel<C, 16, 1> source_model;
    GpsSequences<C, false> times;

    void seed_z(const uint8_t* item) { std::fill_n(last_z, 8, laz_get<int32_t>(item + Z_AT)); }
    void seed_intensity(const uint8_t* item) {
      std::fill_n(last_intensity, 8, laz_get<uint16_t>(item + INTENSITY_AT));
    }
  };

  struct Step {  // from the first layer to the others, for one point
    Context* context;
    const uint8_t* last;  // the item that predicts it
    bool fresh;           // the context is new: the point's layers have to seed it with `last`
    uint8_t changed;
    uint8_t kxy;  // mean number of bits of the differences in X and Y
  };

  // A context but for what the layers seed.
  Context& create(unsigned channel) {
    if (!contexts_[channel]) contexts_[channel] = std::make_unique<Context>();
    Context& k = *contexts_[channel];
    used_[channel] = true;
    k.last_time_changed = false;
    for (int i = 0; i < 12; i++) k.median_x[i] = k.median_y[i] = Median5();
    k.channel_model.init();
    k.r_step_model.init();
    k.dx_model.init();
    k.dy_model.init();
    k.z_model.init();
    k.intensity_model.init();
    k.angle_model.init();
    k.source_model.init();
    k.times.start(0);
    return k;
  }

  template <int S>
  LAZ_INLINE uint32_t symbol(C& c, Symbols<S>& model, uint32_t s) {  // of a model made on first use
    model.init_once(generation_);
    return c.symbol(model, s);
  }

  template <class T>
  static bool differ(const uint8_t* a, const uint8_t* b, unsigned at) {
    return laz_get<T>(a + at) != laz_get<T>(b + at);
  }
  static LAZ_INLINE uint32_t changes(const uint8_t* p, const uint8_t* last) {
    const uint32_t now = p[RETURNS_AT], before = last[RETURNS_AT], step = (now - before) & 15;
    return (step == 15 ? 2 : std::min(step, 2u) + (step >= 2)) | ((now ^ before) > 15 ? N_RETURNS : 0) |
           (differ<uint16_t>(p, last, ANGLE_AT) ? SCAN_ANGLE : 0) |
           (differ<uint64_t>(p, last, TIME_AT) ? GPS_TIME : 0) |
           (differ<uint16_t>(p, last, SOURCE_AT) ? SOURCE_ID : 0);
  }

  LAZ_INLINE uint32_t code_returns(C& c, Context& k, uint32_t changed, uint32_t last, uint32_t now) {
    uint32_t n = last >> 4, r = last & 15;
    if (changed & N_RETURNS) n = symbol<16>(c, k.n_model[n], now >> 4);
    const uint32_t step = changed & RETURN_STEP;
    if (step == 3) {
      if (changed & GPS_TIME)
        r = symbol<16>(c, k.r_model[r], now & 15);
      else
        r = (r + c.symbol(k.r_step_model, (now - r - 2) & 15) + 2) & 15;
    } else {
      r = (r + step + (step == 2 ? 13 : 0)) & 15;
    }
    return n << 4 | r;
  }

  LAZ_INLINE void code_returns_xy(C& c, Step& step, Byte* p, uint8_t& context_of_others) {
    Context* k = contexts_[current_].get();
    const uint8_t* last = last_[current_];
    uint32_t changed = 0, channel = current_;
    if constexpr (C::encoding) {
      channel = p[FLAGS_AT] >> 4 & 3;
      changed = changes(p, used_[channel] ? last_[channel] : last) | (channel != current_ ? CHANNEL : 0);
    }
    const uint32_t position = LAZ_RETURNS14[last[RETURNS_AT]].position;
    const uint32_t situation = (position >> 1 | (position & 1) << 1) | (k->last_time_changed ? 4 : 0);
    changed = symbol<128>(c, k->changed_model[situation], changed);
    context_of_others = 0;
    step.fresh = false;
    if (changed & CHANNEL) [[unlikely]] {
      channel = (current_ + 1 + c.symbol(k->channel_model, (channel - current_ - 1) & 3)) & 3;
      current_ = channel;
      context_of_others = uint8_t(channel);
      step.fresh = !used_[channel];
      if (step.fresh)
        create(channel);
      else
        last = last_[channel];
      k = contexts_[channel].get();
    }
    if (own_channel_) context_of_others = uint8_t(channel);
    const uint32_t now = code_returns(c, *k, changed, last[RETURNS_AT], p[RETURNS_AT]);
    const Returns14 returns = LAZ_RETURNS14[now];
    const bool time_changed = (changed & GPS_TIME) != 0;
    const uint32_t m = 2 * returns.kind + time_changed;

    const uint32_t last_x = laz_get<uint32_t>(last + X_AT), last_y = laz_get<uint32_t>(last + Y_AT);
    const uint32_t dx = k->dx_model.code(c, uint32_t(k->median_x[m].get()),
                                         laz_get<uint32_t>(p + X_AT) - last_x, returns.single);
    k->median_x[m].add(int32_t(dx));
    const uint32_t kx = k->dx_model.k;
    const uint32_t dy =
        k->dy_model.code(c, uint32_t(k->median_y[m].get()), laz_get<uint32_t>(p + Y_AT) - last_y,
                         returns.single + std::min(kx & ~1u, 20u));
    k->median_y[m].add(int32_t(dy));
    k->last_time_changed = time_changed;
    last_[channel] = p;
    step.context = k;
    step.last = last;
    step.changed = uint8_t(changed);
    step.kxy = uint8_t((kx + k->dy_model.k) / 2);
    if constexpr (!C::encoding) {
      laz_put(p + X_AT, last_x + dx);
      laz_put(p + Y_AT, last_y + dy);
      p[RETURNS_AT] = uint8_t(now);
      p[FLAGS_AT] = uint8_t((last[FLAGS_AT] & ~CHANNEL_BITS) | channel << 4);
    }
  }

  LAZ_INLINE bool code_z(C& c, const Step& step, Byte* p) {
    Context& k = *step.context;
    if (step.fresh) [[unlikely]]
      k.seed_z(step.last);
    const Returns14 returns = LAZ_RETURNS14[p[RETURNS_AT]];
    int32_t& prediction = k.last_z[returns.below];
    const uint32_t z = k.z_model.code(c, uint32_t(prediction), laz_get<uint32_t>(p + Z_AT),
                                      returns.single + std::min(step.kxy & ~1u, 18u));
    prediction = int32_t(z);
    put(p + Z_AT, z);
    return true;
  }
  LAZ_INLINE bool code_class(C& c, const Step& step, Byte* p) {
    const uint32_t last = step.last[CLASS_AT];
    const uint32_t only = LAZ_RETURNS14[p[RETURNS_AT]].position == 3;
    const uint32_t now = symbol<256>(c, step.context->class_model[(last & 31) << 1 | only], p[CLASS_AT]);
    put(p + CLASS_AT, uint8_t(now));
    return now != last;
  }
  static uint32_t flag_symbol(uint32_t flags) { return (flags & 15) | (flags >> 2 & 0x30); }
  LAZ_INLINE bool code_flags(C& c, const Step& step, Byte* p) {
    const uint32_t last = flag_symbol(step.last[FLAGS_AT]);
    const uint32_t now = symbol<64>(c, step.context->flags_model[last], flag_symbol(p[FLAGS_AT]));
    put(p + FLAGS_AT, uint8_t((now & 15) | (p[FLAGS_AT] & CHANNEL_BITS) | (now & 0x30) << 2));
    return now != last;
  }
  LAZ_INLINE bool code_intensity(C& c, const Step& step, Byte* p) {
    Context& k = *step.context;
    if (step.fresh) [[unlikely]]
      k.seed_intensity(step.last);
    const uint32_t position = LAZ_RETURNS14[p[RETURNS_AT]].position;
    uint16_t& prediction = k.last_intensity[2 * position + ((step.changed & GPS_TIME) != 0)];
    prediction =
        uint16_t(k.intensity_model.code(c, prediction, laz_get<uint16_t>(p + INTENSITY_AT), position));
    put(p + INTENSITY_AT, prediction);
    return prediction != laz_get<uint16_t>(step.last + INTENSITY_AT);
  }
  LAZ_INLINE bool code_angle(C& c, const Step& step, Byte* p) {
    const uint16_t last = laz_get<uint16_t>(step.last + ANGLE_AT);
    const bool changed = (step.changed & SCAN_ANGLE) != 0;
    uint16_t now = last;
    if (changed)
      now = uint16_t(step.context->angle_model.code(c, last, laz_get<uint16_t>(p + ANGLE_AT),
                                                    (step.changed & GPS_TIME) != 0));
    put(p + ANGLE_AT, now);
    return changed;
  }
  LAZ_INLINE bool code_user(C& c, const Step& step, Byte* p) {
    const uint32_t last = step.last[USER_AT];
    const uint32_t now = symbol<256>(c, step.context->user_model[last >> 2], p[USER_AT]);
    put(p + USER_AT, uint8_t(now));
    return now != last;
  }
  LAZ_INLINE bool code_source(C& c, const Step& step, Byte* p) {
    const uint16_t last = laz_get<uint16_t>(step.last + SOURCE_AT);
    const bool changed = (step.changed & SOURCE_ID) != 0;
    uint16_t now = last;
    if (changed)
      now = uint16_t(step.context->source_model.code(c, last, laz_get<uint16_t>(p + SOURCE_AT), 0));
    put(p + SOURCE_AT, now);
    return changed;
  }
  LAZ_INLINE bool code_time(C& c, const Step& step, Byte* p) {
    const uint64_t last = laz_get<uint64_t>(step.last + TIME_AT);
    const bool changed = (step.changed & GPS_TIME) != 0;
    GpsSequences<C, false>& times = step.context->times;
    if (step.fresh) [[unlikely]]
      times.seed(last);
    if constexpr (C::encoding) {
      if (changed) times.encode(c, laz_get<uint64_t>(p + TIME_AT));
    } else {
      laz_put(p + TIME_AT, changed ? times.decode(c) : last);
    }
    return changed;
  }

  template <class T>
  static LAZ_INLINE void put(Byte* at, T value) {  // into records that are decoded
    if constexpr (!C::encoding) laz_put(at, value);
  }

  struct Block {  // of points to be coded, and what the other layers need of the first
    Layer<C>* layers;
    Byte* records;
    unsigned stride;
    uint64_t n;
    Step steps[LAZ_LAYER_BLOCK];
  };

  // One layer. Where it isn't coded, the field of type T (void: none) at `at` is that of the item before.
  template <auto Code, class T>
  LAZ_INLINE void run_layer(Block& block, LayerIndex index, unsigned at) {
    Layer<C>& layer = block.layers[index];
    Byte* p = block.records;
    if (layer.coded()) {
      C c = layer.coder;
      bool changed = false;
      for (uint64_t i = 0; i < block.n; i++, p += block.stride)
        changed |= (this->*Code)(c, block.steps[i], p);
      layer.coder = c;
      if constexpr (C::encoding) layer.active |= changed;
    } else if constexpr (!C::encoding && !std::is_void_v<T>) {
      for (uint64_t i = 0; i < block.n; i++, p += block.stride)
        laz_put(p + at, laz_get<T>(block.steps[i].last + at));
    }
  }

  // Two layers, decoded point by point: each waits for its own symbols only.
  template <auto CodeA, class A, auto CodeB, class B>
  LAZ_INLINE void run_two(Block& block, LayerIndex index_a, unsigned at_a, LayerIndex index_b,
                          unsigned at_b) {
    Layer<C>&layer_a = block.layers[index_a], &layer_b = block.layers[index_b];
    if (C::encoding || !layer_a.coded() || !layer_b.coded()) {
      run_layer<CodeA, A>(block, index_a, at_a);
      run_layer<CodeB, B>(block, index_b, at_b);
      return;
    }
    C a = layer_a.coder, b = layer_b.coder;
    Byte* p = block.records;
    for (uint64_t i = 0; i < block.n; i++, p += block.stride) {
      (this->*CodeA)(a, block.steps[i], p);
      (this->*CodeB)(b, block.steps[i], p);
    }
    layer_a.coder = a;
    layer_b.coder = b;
  }

  LAZ_INLINE void run_any(Layer<C>* layers, Byte* records, unsigned stride, uint64_t n, uint8_t* contexts) {
    using Self = Point14Item;
    Block block;
    block.layers = layers;
    block.records = records;
    block.stride = stride;
    block.n = n;
    C c = layers[RETURNS_XY].coder;
    for (uint64_t i = 0; i < n; i++) code_returns_xy(c, block.steps[i], records + i * stride, contexts[i]);
    layers[RETURNS_XY].coder = c;
    run_two<&Self::code_z, uint32_t, &Self::code_intensity, uint16_t>(block, Z, Z_AT, INTENSITY,
                                                                      INTENSITY_AT);
    run_two<&Self::code_class, uint8_t, &Self::code_time, uint64_t>(block, CLASS, CLASS_AT, TIME, TIME_AT);
    run_layer<&Self::code_flags, void>(block, FLAGS, FLAGS_AT);  // the first layer has copied them
    run_layer<&Self::code_angle, uint16_t>(block, ANGLE, ANGLE_AT);
    run_layer<&Self::code_user, uint8_t>(block, USER, USER_AT);
    run_layer<&Self::code_source, uint16_t>(block, SOURCE, SOURCE_AT);
    for (unsigned channel = 0; channel < LAZ_NCHANNELS; channel++) {
      if (!used_[channel] || last_[channel] == contexts_[channel]->last) continue;
      std::memcpy(contexts_[channel]->last, last_[channel], SIZE);
      last_[channel] = contexts_[channel]->last;
    }
  }
  LAZ_BIT_INSTRUCTIONS void run_fast(Layer<C>* layers, Byte* records, unsigned stride, uint64_t n,
                                     uint8_t* contexts) {
    run_any(layers, records, stride, n, contexts);
  }
  void run_plain(Layer<C>* layers, Byte* records, unsigned stride, uint64_t n, uint8_t* contexts) {
    run_any(layers, records, stride, n, contexts);
  }

  bool own_channel_;
  uint32_t generation_ = 0;
  unsigned current_ = 0;
  bool used_[LAZ_NCHANNELS] = {};
  const uint8_t* last_[LAZ_NCHANNELS] = {};  // the latest item of each channel in use
  std::unique_ptr<Context> contexts_[LAZ_NCHANNELS];
};
}  // namespace veld
