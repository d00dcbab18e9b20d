// las/laz_pointwise_impl.h
// PointItems for lists of items known at compile time: the items' code runs inlined, with the coder's state
// in registers. Included by laz_pointwise_dec.cpp and laz_pointwise_enc.cpp only.
#pragma once
#include <tuple>
#include <utility>
#include <vector>

#include "las/laz_gpstime.h"
#include "las/laz_point10.h"
#include "las/laz_pointwise.h"
#include "las/laz_rgb.h"
#include "las/laz_wave.h"

namespace veld {
template <class C>
struct Bytes2 {  // extra bytes, version 2: each against the same byte of the last point
  std::vector<typename C::template Symbols<256>> models;
  std::vector<uint8_t> last;

  explicit Bytes2(unsigned size) : models(size), last(size) {}
  unsigned size() const { return unsigned(last.size()); }
  unsigned max_bytes() const { return ARITH_SYMBOL_BYTES * size(); }
  void start(const uint8_t* first) {
    for (auto& model : models) model.init();
    std::memcpy(last.data(), first, last.size());
  }
  LAZ_INLINE void code(C& c, typename C::Byte* record) {
    const size_t n = last.size();
    for (size_t i = 0; i < n; i++) {
      uint32_t diff = 0;
      if constexpr (C::encoding) diff = uint8_t(record[i] - last[i]);
      last[i] = uint8_t(last[i] + c.symbol(models[i], diff));
      if constexpr (!C::encoding) record[i] = last[i];
    }
  }
};

template <class C, class... Items>
class FixedItems final : public PointItems<C> {
 public:
  explicit FixedItems(unsigned nextra) : extra_(nextra), stride_(BASE + nextra) {}

  void start(const uint8_t* first) override {
    std::apply([&](auto&... item) { ((item.start(first), first += item.SIZE), ...); }, items_);
    if (extra_.size() > 0) extra_.start(first);
  }
  void run(C& c, typename C::Byte* records, uint64_t n) override {
    has_bit_instructions() ? run_fast(c, records, n) : run_plain(c, records, n);
  }
  unsigned max_bytes() const override { return (Items::MAX_BYTES + ...) + extra_.max_bytes(); }

 private:
  LAZ_BIT_INSTRUCTIONS void run_fast(C& c, typename C::Byte* records, uint64_t n) { run_any(c, records, n); }
  void run_plain(C& c, typename C::Byte* records, uint64_t n) { run_any(c, records, n); }

  LAZ_INLINE void run_any(C& state, typename C::Byte* records, uint64_t n) {
    C c = state;
    for (uint64_t i = 0; i < n; i++) {
      typename C::Byte* at = records + i * stride_;
      code_all(c, at, std::index_sequence_for<Items...>());
      if (extra_.size() > 0) extra_.code(c, at + BASE);
    }
    if constexpr (!C::encoding) c.settle();
    state = c;
  }
  template <size_t... I>
  LAZ_INLINE void code_all(C& c, typename C::Byte* at, std::index_sequence<I...>) {
    ((std::get<I>(items_).code(c, at), at += Items::SIZE), ...);
  }

  static constexpr unsigned BASE = (Items::SIZE + ...);
  std::tuple<Items...> items_;
  Bytes2<C> extra_;
  unsigned stride_;
};

// None unless the items are those of a point format in the versions that are written today.
template <class C>
std::unique_ptr<PointItems<C>> make_fixed_items(const LASzip& scheme) {
  using P = Point10v2<C>;
  using G = GpsTime11v2<C>;
  using R = Rgb12v2<C>;
  using W = WavePacket13<C>;
  unsigned nextra = 0;
  std::string list;
  for (const LazItem& item : scheme.items) {
    const bool wave = item.type == LazType::wavepacket13;
    if (item.version != (wave ? 1 : 2)) return nullptr;
    if (item.type == LazType::byte) {
      if (nextra > 0) return nullptr;
      nextra = item.size;
      continue;
    }
    if (nextra > 0) return nullptr;
    list += item.type == LazType::point10 ? 'P' : item.type == LazType::gpstime11 ? 'G' : wave ? 'W' : 'R';
  }
  if (list == "P") return std::make_unique<FixedItems<C, P>>(nextra);
  if (list == "PG") return std::make_unique<FixedItems<C, P, G>>(nextra);
  if (list == "PR") return std::make_unique<FixedItems<C, P, R>>(nextra);
  if (list == "PGR") return std::make_unique<FixedItems<C, P, G, R>>(nextra);
  if (list == "PGW") return std::make_unique<FixedItems<C, P, G, W>>(nextra);
  if (list == "PGRW") return std::make_unique<FixedItems<C, P, G, R, W>>(nextra);
  return nullptr;
}
}  // namespace veld
