// las/laz_pointwise_dec.cpp
#include "las/laz_pointwise_impl.h"

namespace veld {
namespace {
struct Bytes1 {  // extra bytes, version 1
  IntegerModel<ArithDecoder, 8, 1> value_model;
  std::vector<IntegerModel<ArithDecoder, 8, 1>::Bits> nbits;  // one context a byte
  std::vector<uint8_t> last;

  explicit Bytes1(unsigned size) : nbits(size), last(size) {}
  unsigned size() const { return unsigned(last.size()); }
  unsigned max_bytes() const { return 8 * size(); }
  void start(const uint8_t* first) {
    value_model.init();
    for (auto& model : nbits) model.init();
    std::memcpy(last.data(), first, last.size());
  }
  void code(ArithDecoder& c, uint8_t* record) {
    for (size_t i = 0; i < last.size(); i++)
      record[i] = last[i] = uint8_t(value_model.code_with(c, nbits[i], last[i], 0));
  }
};

// One item of a list that has no form of its own: old versions, mixed versions.
class AnyItem {
 public:
  virtual ~AnyItem() = default;
  virtual void start(const uint8_t* first) = 0;
  virtual void code(ArithDecoder& c, uint8_t* record) = 0;
  virtual unsigned size() const = 0;
  virtual unsigned max_bytes() const = 0;
};

template <class Item>
class FixedSizeItem final : public AnyItem {
 public:
  void start(const uint8_t* first) override { item_.start(first); }
  void code(ArithDecoder& c, uint8_t* record) override { item_.code(c, record); }
  unsigned size() const override { return Item::SIZE; }
  unsigned max_bytes() const override { return Item::MAX_BYTES; }

 private:
  Item item_;
};

template <class Item>
class ByteItem final : public AnyItem {
 public:
  explicit ByteItem(unsigned size) : item_(size) {}
  void start(const uint8_t* first) override { item_.start(first); }
  void code(ArithDecoder& c, uint8_t* record) override { item_.code(c, record); }
  unsigned size() const override { return item_.size(); }
  unsigned max_bytes() const override { return item_.max_bytes(); }

 private:
  Item item_;
};

std::unique_ptr<AnyItem> make_item(const LazItem& item) {
  using C = ArithDecoder;
  const bool old = item.version == 1;
  switch (item.type) {
    case LazType::point10:
      if (old) return std::make_unique<FixedSizeItem<Point10v1>>();
      return std::make_unique<FixedSizeItem<Point10v2<C>>>();
    case LazType::gpstime11:
      if (old) return std::make_unique<FixedSizeItem<GpsTime11v1>>();
      return std::make_unique<FixedSizeItem<GpsTime11v2<C>>>();
    case LazType::rgb12:
      if (old) return std::make_unique<FixedSizeItem<Rgb12v1>>();
      return std::make_unique<FixedSizeItem<Rgb12v2<C>>>();
    case LazType::wavepacket13:
      return std::make_unique<FixedSizeItem<WavePacket13<C>>>();
    case LazType::byte:
      if (old) return std::make_unique<ByteItem<Bytes1>>(item.size);
      return std::make_unique<ByteItem<Bytes2<C>>>(item.size);
    default:
      return nullptr;
  }
}

class ItemList final : public PointItems<ArithDecoder> {
 public:
  explicit ItemList(const LASzip& scheme) {
    for (const LazItem& item : scheme.items) items_.push_back(make_item(item));
  }
  void start(const uint8_t* first) override {
    for (const auto& item : items_) {
      item->start(first);
      first += item->size();
    }
  }
  void run(ArithDecoder& c, uint8_t* records, uint64_t n) override {
    for (uint64_t i = 0; i < n; i++)
      for (const auto& item : items_) {
        item->code(c, records);
        records += item->size();
      }
    c.settle();
  }
  unsigned max_bytes() const override {
    unsigned sum = 0;
    for (const auto& item : items_) sum += item->max_bytes();
    return sum;
  }

 private:
  std::vector<std::unique_ptr<AnyItem>> items_;
};
}  // namespace

std::unique_ptr<PointItems<ArithDecoder>> make_point_decoder(const LASzip& scheme) {
  if (auto fixed = make_fixed_items<ArithDecoder>(scheme)) return fixed;
  return std::make_unique<ItemList>(scheme);
}
}  // namespace veld
