// las/laz_point14.h
// POINT14: the 30 bytes that point formats 6 to 10 share, in nine layers. Private to the codec's sources.
#pragma once
#include "las/laz_codec.h"
#include "las/laz_gpstime.h"
#include "las/laz_layers.h"

// Class of a return by number of returns (row) and return number.
inline constexpr char LAZ_RETURN_CLASS14[16][17] = {
    "0123453445555555", "1013333333333333", "2124444444433333", "3345444444444444",
    "4344544444444444", "5344454444444444", "3344445444444444", "4344444544444444",
    "4344444454444444", "5344444445444444", "5344444444544444", "5334444444455444",
    "5334444444455544", "5334444444445554", "5334444444444555", "5334444444444455"};

struct Point14 {
  int32_t x, y, z;
  uint16_t intensity;
  uint8_t returns;  // bits 0-3 return number, 4-7 number of returns
  uint8_t flags;    // bits 0-3 classification flags, 4-5 channel, 6 scan direction, 7 edge
  uint8_t classification;
  uint8_t user;
  uint16_t angle;
  uint16_t source;
  uint64_t time;

  static constexpr unsigned FRONT = 22;  // bytes before the time
  void load(const uint8_t* at) {
    std::memcpy(this, at, FRONT);
    time = laz_get<uint64_t>(at + FRONT);
  }
  void store(uint8_t* at) const {
    std::memcpy(at, this, FRONT);
    laz_put(at + FRONT, time);
  }
  uint32_t r() const { return returns & 15; }
  uint32_t n() const { return returns >> 4; }
  uint32_t channel() const { return flags >> 4 & 3; }
  uint32_t flag_symbol() const { return (flags & 15) | (flags >> 2 & 0x30); }  // edge, direction, class flags
};

template <class C>
class Point14Item final : public LayerItem<C> {
 public:
  // `own_channel`: the other items use the state of the point's channel (version 4); else that of channel 0,
  // but for points that switch to another channel, where they use its own (version 3).
  explicit Point14Item(bool own_channel) : own_channel_(own_channel) {}

  unsigned size() const override { return 30; }
  unsigned nlayers() const override { return 9; }
  unsigned max_bytes() const override { return 32; }
  uint32_t field(unsigned layer) const override {
    static constexpr uint32_t fields[9] = {0,         LAZ_Z,    LAZ_CLASS,  LAZ_FLAGS,  LAZ_INTENSITY,
                                           LAZ_ANGLE, LAZ_USER, LAZ_SOURCE, LAZ_GPSTIME};
    return fields[layer];
  }

  void start(const uint8_t* first, unsigned channel) override {
    Point14 p;
    p.load(first);
    generation_++;
    for (bool& used : used_) used = false;
    current_ = channel;
    create(channel, p);
  }

  void run(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
           uint8_t* contexts) override {
    has_bit_instructions() ? run_fast(layers, records, stride, n, contexts)
                           : run_plain(layers, records, stride, n, contexts);
  }

 private:
  LAZ_BIT_INSTRUCTIONS void run_fast(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
                                     uint8_t* contexts) {
    for (uint64_t i = 0; i < n; i++) contexts[i] = code(layers, records + i * stride);
  }
  void run_plain(Layer<C>* layers, typename C::Byte* records, unsigned stride, uint64_t n,
                 uint8_t* contexts) {
    for (uint64_t i = 0; i < n; i++) contexts[i] = code(layers, records + i * stride);
  }

  enum LayerIndex { RETURNS_XY, Z, CLASS, FLAGS, INTENSITY, ANGLE, USER, SOURCE, TIME };
  template <int S>
  using Symbols = typename C::template Symbols<S>;

  struct Context {  // of one channel
    Point14 last;
    bool last_time_changed;
    Median5 median_x[12], median_y[12];
    int32_t last_z[8];
    uint16_t last_intensity[8];
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
  };

  void create(unsigned channel, const Point14& seed) {
    if (!contexts_[channel]) contexts_[channel] = std::make_unique<Context>();
    Context& k = *contexts_[channel];
    used_[channel] = true;
    k.last = seed;
    k.last_time_changed = false;
    for (int i = 0; i < 12; i++) k.median_x[i] = k.median_y[i] = Median5();
    for (int i = 0; i < 8; i++) k.last_z[i] = seed.z, k.last_intensity[i] = seed.intensity;
    k.channel_model.init();
    k.r_step_model.init();
    k.dx_model.init();
    k.dy_model.init();
    k.z_model.init();
    k.intensity_model.init();
    k.angle_model.init();
    k.source_model.init();
    k.times.start(seed.time);
  }

  template <int S>
  LAZ_INLINE uint32_t symbol(C& c, Symbols<S>& model, uint32_t s) {  // of a model made on first use
    model.init_once(generation_);
    return c.symbol(model, s);
  }

  // Bits of the symbol that says what changed.
  static constexpr uint32_t RETURN_STEP = 3, N_RETURNS = 4, SCAN_ANGLE = 8, GPS_TIME = 16, SOURCE_ID = 32,
                            CHANNEL = 64;
  static uint32_t changes(const Point14& p, const Point14& last) {
    const uint32_t step = (p.r() - last.r()) & 15;
    return (step == 15 ? 2 : std::min(step, 2u) + (step >= 2)) | (p.n() != last.n() ? N_RETURNS : 0) |
           (p.angle != last.angle ? SCAN_ANGLE : 0) | (p.time != last.time ? GPS_TIME : 0) |
           (p.source != last.source ? SOURCE_ID : 0);
  }

  LAZ_INLINE uint32_t code_returns(C& c, Context& k, uint32_t changed, const Point14& p) {
    uint32_t n = k.last.n(), r = k.last.r();
    if (changed & N_RETURNS) n = symbol<16>(c, k.n_model[n], p.n());
    switch (changed & RETURN_STEP) {
      case 0:
        break;
      case 1:
        r = (r + 1) & 15;
        break;
      case 2:
        r = (r + 15) & 15;
        break;
      default:
        if (changed & GPS_TIME)
          r = symbol<16>(c, k.r_model[r], p.r());
        else
          r = (r + c.symbol(k.r_step_model, (p.r() - r - 2) & 15) + 2) & 15;
    }
    return n << 4 | r;
  }

  LAZ_INLINE uint8_t code(Layer<C>* layers, typename C::Byte* record) {
    Point14 p{};
    Context* k = contexts_[current_].get();
    uint32_t changed = 0, channel = current_;
    if constexpr (C::encoding) {
      p.load(record);
      channel = p.channel();
      changed = changes(p, used_[channel] ? contexts_[channel]->last : k->last) |
                (channel != current_ ? CHANNEL : 0);
    }
    C c = layers[RETURNS_XY].coder;
    const uint32_t previous =
        (k->last.r() == 1) | (k->last.r() >= k->last.n()) << 1 | k->last_time_changed << 2;
    changed = symbol<128>(c, k->changed_model[previous], changed);
    uint8_t context = 0;
    if (changed & CHANNEL) {
      channel = (current_ + 1 + c.symbol(k->channel_model, (channel - current_ - 1) & 3)) & 3;
      if (!used_[channel]) create(channel, k->last);
      current_ = channel;
      k = contexts_[channel].get();
      context = uint8_t(channel);
    }
    if (own_channel_) context = uint8_t(channel);
    const Point14& last = k->last;
    if constexpr (!C::encoding) {
      p = last;
      p.flags = uint8_t((last.flags & ~0x30u) | channel << 4);
    }
    p.returns = uint8_t(code_returns(c, *k, changed, p));
    const uint32_t n = p.n(), r = p.r(), g = (changed & GPS_TIME) != 0;
    const uint32_t m = 2 * uint32_t(LAZ_RETURN_CLASS14[n][r] - '0') + g,
                   l = std::min(n > r ? n - r : r - n, 7u);
    const uint32_t position = (r == 1 ? 2 : 0) + (r >= n ? 1 : 0);  // first, last, only, between
    const uint32_t single = n == 1;

    const uint32_t last_x = uint32_t(last.x), last_y = uint32_t(last.y);
    const uint32_t dx = k->dx_model.code(c, uint32_t(k->median_x[m].get()), uint32_t(p.x) - last_x, single);
    k->median_x[m].add(int32_t(dx));
    p.x = int32_t(last_x + dx);
    const uint32_t kx = k->dx_model.k;
    const uint32_t dy = k->dy_model.code(c, uint32_t(k->median_y[m].get()), uint32_t(p.y) - last_y,
                                         single + (kx < 20 ? kx & ~1u : 20));
    k->median_y[m].add(int32_t(dy));
    p.y = int32_t(last_y + dy);
    layers[RETURNS_XY].coder = c;

    if (enter(layers[Z], true)) {
      const uint32_t kxy = (kx + k->dy_model.k) / 2;
      p.z = int32_t(k->z_model.code(layers[Z].coder, uint32_t(k->last_z[l]), uint32_t(p.z),
                                    single + (kxy < 18 ? kxy & ~1u : 18)));
      k->last_z[l] = p.z;
    }
    if (enter(layers[CLASS], p.classification != last.classification)) {
      const uint32_t i = (last.classification & 31u) << 1 | (position == 3);
      p.classification = uint8_t(symbol<256>(layers[CLASS].coder, k->class_model[i], p.classification));
    }
    if (enter(layers[FLAGS], p.flag_symbol() != last.flag_symbol())) {
      const uint32_t f = symbol<64>(layers[FLAGS].coder, k->flags_model[last.flag_symbol()], p.flag_symbol());
      p.flags = uint8_t((f & 15) | channel << 4 | (f & 0x30) << 2);
    }
    if (enter(layers[INTENSITY], p.intensity != last.intensity)) {
      uint16_t& prediction = k->last_intensity[2 * position + g];
      prediction =
          uint16_t(k->intensity_model.code(layers[INTENSITY].coder, prediction, p.intensity, position));
      p.intensity = prediction;
    }
    if (changed & SCAN_ANGLE && enter(layers[ANGLE], true)) {
      p.angle = uint16_t(k->angle_model.code(layers[ANGLE].coder, last.angle, p.angle, g));
    }
    if (enter(layers[USER], p.user != last.user)) {
      p.user = uint8_t(symbol<256>(layers[USER].coder, k->user_model[last.user >> 2], p.user));
    }
    if (changed & SOURCE_ID && enter(layers[SOURCE], true)) {
      p.source = uint16_t(k->source_model.code(layers[SOURCE].coder, last.source, p.source, 0));
    }
    if (changed & GPS_TIME && enter(layers[TIME], true)) {
      if constexpr (C::encoding)
        k->times.encode(layers[TIME].coder, p.time);
      else
        p.time = k->times.decode(layers[TIME].coder);
    }
    k->last = p;
    k->last_time_changed = g;
    if constexpr (!C::encoding) p.store(record);
    return context;
  }

  // Is there something to code in the layer? The encoder codes always, and notes whether it was for a change.
  static LAZ_INLINE bool enter(Layer<C>& layer, bool change) {
    if constexpr (C::encoding) {
      layer.active |= change;
      return true;
    }
    return layer.active;
  }

  bool own_channel_;
  uint32_t generation_ = 0;
  unsigned current_ = 0;
  bool used_[LAZ_NCHANNELS] = {};
  std::unique_ptr<Context> contexts_[LAZ_NCHANNELS];
};
