#include "Zet/attrlog/AttrLogProtocol.h"

namespace Zet {
namespace NboAttrLog {
namespace {

// Reads the body of one frame; every read checks what is left first.
class BodyReader {
 public:
  explicit BodyReader(std::string_view body) : rest_(body) {}

  bool u16(uint16_t& v) {
    if (rest_.size() < 2) return false;
    v = uint16_t(byte(0) << 8 | byte(1));
    rest_.remove_prefix(2);
    return true;
  }
  bool u32(uint32_t& v) {
    if (rest_.size() < 4) return false;
    v = uint32_t(byte(0)) << 24 | uint32_t(byte(1)) << 16 | uint32_t(byte(2)) << 8 | uint32_t(byte(3));
    rest_.remove_prefix(4);
    return true;
  }
  bool text(std::string_view& v) {
    uint32_t size;
    if (!u32(size) || size > rest_.size()) return false;
    v = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return true;
  }
  bool bytes(size_t n, std::string_view& v) {
    if (rest_.size() < n) return false;
    v = rest_.substr(0, n);
    rest_.remove_prefix(n);
    return true;
  }
  // An attribute takes at least 8 bytes, so a count above rest/8 is a lie
  // and is refused before anything is reserved for it.
  bool attributes(std::vector<AttributeText>& out) {
    uint32_t count;
    if (!u32(count) || count > rest_.size() / 8) return false;
    out.clear();
    out.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
      AttributeText a;
      if (!u32(a.id) || !text(a.text)) return false;
      out.push_back(a);
    }
    return true;
  }
  bool atEnd() const { return rest_.empty(); }

 private:
  unsigned byte(size_t i) const { return static_cast<unsigned char>(rest_[i]); }
  std::string_view rest_;
};

bool decodeBody(Kind kind, BodyReader& in, Message& m) {
  m.attributes.clear();
  switch (kind) {
    case Kind::hello: {
      std::string_view magic;
      return in.bytes(kMagic.size(), magic) && magic == kMagic && in.u16(m.version);
    }
    case Kind::refused:
      return in.text(m.name);
    case Kind::subscribe:
      return in.u32(m.subscription) && in.text(m.name);
    case Kind::unsubscribe:
    case Kind::notFound:
    case Kind::snapshotEnd:
      return in.u32(m.subscription);
    case Kind::entity:
      return in.u32(m.subscription) && in.u32(m.id) && in.u32(m.parent) && in.text(m.name) && in.text(m.type) &&
             in.attributes(m.attributes);
    case Kind::update:
      return in.u32(m.subscription) && in.u32(m.id) && in.attributes(m.attributes);
    case Kind::remove:
      return in.u32(m.subscription) && in.u32(m.id);
  }
  return false;
}

}  // namespace

Decoded decodeFrame(std::string_view bytes, Message& m, size_t& used, std::string& error) {
  BodyReader header(bytes);
  uint32_t size;
  if (!header.u32(size)) return Decoded::needMore;
  if (size == 0 || size > kMaxFrameBytes) {
    error = "frame size " + std::to_string(size) + " is outside 1.." + std::to_string(kMaxFrameBytes);
    return Decoded::malformed;
  }
  if (bytes.size() - 4 < size) return Decoded::needMore;
  uint8_t kind = static_cast<uint8_t>(bytes[4]);
  if (kind < uint8_t(Kind::hello) || kind > uint8_t(Kind::snapshotEnd)) {
    error = "unknown frame kind " + std::to_string(kind);
    return Decoded::malformed;
  }
  m.kind = Kind(kind);
  BodyReader body(bytes.substr(5, size - 1));
  if (!decodeBody(m.kind, body, m) || !body.atEnd()) {
    error = "frame of kind " + std::to_string(kind) + " does not match its layout";
    return Decoded::malformed;
  }
  used = 4 + size_t(size);
  return Decoded::frame;
}

void FrameWriter::u16(uint16_t v) {
  out_.push_back(char(v >> 8));
  out_.push_back(char(v));
}

void FrameWriter::u32(uint32_t v) {
  char b[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
  out_.append(b, 4);
}

void FrameWriter::text(std::string_view v) {
  u32(uint32_t(v.size()));
  out_.append(v);
}

void FrameWriter::open(Kind kind) {
  frameStart_ = out_.size();
  u32(0);
  out_.push_back(char(kind));
}

void FrameWriter::finish() {
  uint32_t size = uint32_t(out_.size() - frameStart_ - 4);
  char b[4] = {char(size >> 24), char(size >> 16), char(size >> 8), char(size)};
  out_.replace(frameStart_, 4, b, 4);
}

void FrameWriter::idFrame(Kind kind, uint32_t value) {
  open(kind);
  u32(value);
  finish();
}

Greeting greetingOf(Message const& first) {
  if (first.kind != Kind::hello) return Greeting::missing;
  return first.version == kProtocolVersion ? Greeting::accepted : Greeting::otherVersion;
}

std::string greetingProblem(Greeting greeting, Message const& first, std::string_view peer) {
  std::string text(peer);
  if (greeting == Greeting::missing) return text + " did not begin with a greeting";
  return text + " speaks protocol version " + std::to_string(first.version) + ", this process " +
         std::to_string(kProtocolVersion);
}

void FrameWriter::hello() {
  open(Kind::hello);
  out_.append(kMagic);
  u16(kProtocolVersion);
  finish();
}

void FrameWriter::refused(std::string_view reason) {
  open(Kind::refused);
  text(reason.substr(0, kMaxFrameBytes / 2));
  finish();
}

void FrameWriter::subscribe(uint32_t subscription, std::string_view path) {
  open(Kind::subscribe);
  u32(subscription);
  text(path.substr(0, kMaxFrameBytes / 2));
  finish();
}

void FrameWriter::remove(uint32_t subscription, uint32_t id) {
  open(Kind::remove);
  u32(subscription);
  u32(id);
  finish();
}

void FrameWriter::entityOpen(uint32_t subscription, uint32_t id, uint32_t parent, std::string_view name,
                             std::string_view type) {
  open(Kind::entity);
  u32(subscription);
  u32(id);
  u32(parent);
  text(name.substr(0, kMaxFrameBytes / 4));
  text(type.substr(0, kMaxFrameBytes / 4));
  countAt_ = out_.size();
  count_ = 0;
  u32(0);
}

void FrameWriter::updateOpen(uint32_t subscription, uint32_t id) {
  open(Kind::update);
  u32(subscription);
  u32(id);
  countAt_ = out_.size();
  count_ = 0;
  u32(0);
}

void FrameWriter::attribute(uint32_t id, std::string_view value) {
  if (out_.size() - frameStart_ - 4 + 8 + value.size() > kMaxFrameBytes) {
    ++dropped_;
    return;
  }
  u32(id);
  text(value);
  ++count_;
}

void FrameWriter::close() {
  char b[4] = {char(count_ >> 24), char(count_ >> 16), char(count_ >> 8), char(count_)};
  out_.replace(countAt_, 4, b, 4);
  finish();
}

}  // namespace NboAttrLog
}  // namespace Zet
