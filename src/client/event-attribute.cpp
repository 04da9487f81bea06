#include "client/event-attribute.h"

#include <algorithm>

namespace tolven {

namespace {

// Walks over the packed members of an event in the one order that packing and unpacking share.
// `Codec` has text() and number() for each; `E` is Event or const Event.
template <typename Codec, typename E>
void ForEachMember(Codec& codec, E& event) {
  auto& privilege = event.m_privilege;
  codec.text(event.m_path);  // first, since it is also read alone
  codec.text(event.m_data_hash);
  codec.text(event.m_opt);
  codec.text(event.m_mac_attr_hash);
  codec.text(privilege.zent_acl.zent_acl);
  codec.text(privilege.zent_acl.zent_acl_hash);
  codec.text(privilege.share_priv.share_priv_deny_list);
  codec.text(privilege.share_priv.share_priv_ro_list);
  codec.text(privilege.share_priv.share_priv_rw_list);
  codec.text(privilege.share_priv.share_priv_hash);
  codec.number(event.m_max_id);
  codec.number(event.m_data_size);
  codec.number(event.m_time);
  codec.number(event.m_mac_attr_size);
  codec.number(event.m_sess_id);
  codec.number(event.m_exec_bit);
  codec.number(privilege.unix_mode.uid);
  codec.number(privilege.unix_mode.gid);
  codec.number(privilege.unix_mode.mode);
  codec.number(privilege.share_priv.share_priv_disabled);
}

constexpr size_t kLongestNumber = 10;

class Sizer {
 public:
  void text(const ustring& value) { size_ += kLongestNumber + value.length(); }
  template <typename T>
  void number(T) {
    size_ += kLongestNumber;
  }
  size_t size() const { return size_; }

 private:
  size_t size_ = 0;
};

class Packer {
 public:
  explicit Packer(char* out) : out_(out) {}
  void text(const ustring& value) {
    put(value.length());
    out_ = std::copy_n(value.c_str_utf8(), value.length(), out_);
  }
  void number(uint64_t value) { put(value); }
  void number(uint32_t value) { put(value); }
  void number(int32_t value) { put(static_cast<uint32_t>(value)); }
  const char* end() const { return out_; }

 private:
  void put(uint64_t value) {
    while (value >= 0x80) {
      *out_++ = static_cast<char>(value | 0x80);
      value >>= 7;
    }
    *out_++ = static_cast<char>(value);
  }
  char* out_;
};

class Unpacker {
 public:
  explicit Unpacker(const char* in) : in_(in) {}
  std::string_view view() {
    const size_t length = get();
    const std::string_view found(in_, length);
    in_ += length;
    return found;
  }
  void text(ustring& value) {
    const std::string_view found = view();
    if (!found.empty() || !value.empty()) value = found;
  }
  void number(uint64_t& value) { value = get(); }
  void number(uint32_t& value) { value = static_cast<uint32_t>(get()); }
  void number(int32_t& value) { value = static_cast<int32_t>(static_cast<uint32_t>(get())); }

 private:
  uint64_t get() {
    uint64_t value = 0;
    for (int shift = 0;; shift += 7) {
      const auto byte = static_cast<unsigned char>(*in_++);
      value |= static_cast<uint64_t>(byte & 0x7F) << shift;
      if ((byte & 0x80) == 0) return value;
    }
  }
  const char* in_;
};

// Packs into `scratch`, which holds `limit` bytes at least, and returns a block of the exact size.
std::unique_ptr<char[]> PackThrough(char* scratch, const Event& event) {
  Packer packer(scratch);
  ForEachMember(packer, event);
  const auto size = static_cast<size_t>(packer.end() - scratch);
  std::unique_ptr<char[]> block(new char[size]);
  std::copy_n(scratch, size, block.get());
  return block;
}

std::unique_ptr<char[]> Pack(const Event& event) {
  Sizer sizer;
  ForEachMember(sizer, event);
  char small[1024];
  if (sizer.size() <= sizeof small) return PackThrough(small, event);
  const std::unique_ptr<char[]> large(new char[sizer.size()]);
  return PackThrough(large.get(), event);
}

}  // namespace

EventAttribute::EventAttribute(const Event& event)
    : type(event.m_type), mode(event.m_mode), syncID(event.m_sync_id), packed_(Pack(event)) {}

void EventAttribute::ToEvent(Event& event) const {
  if (packed_) {
    Unpacker unpacker(packed_.get());
    ForEachMember(unpacker, event);
  } else {
    event.clear();
  }
  event.m_type = type;
  event.m_mode = mode;
  event.m_sync_id = syncID;
}

std::string_view EventAttribute::path() const {
  return packed_ ? Unpacker(packed_.get()).view() : std::string_view();
}

void EventAttribute::Clear() {
  type = Event::EV_EMPTY;
  mode = 0;
  syncID = 0;
}

}  // namespace tolven
