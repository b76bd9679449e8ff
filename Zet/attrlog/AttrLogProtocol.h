#pragma once
// The attribute-log protocol: how a mounting process and a serving process
// talk (docs/attribute-log-protocol.md has the whole description).
//
// A stream of frames, each a 32-bit big-endian size, then a one-byte kind,
// then the body; the size counts the kind and the body and is at most
// kMaxFrameBytes. Integers are big-endian; a text is a 32-bit size and its
// bytes. FrameWriter appends frames to a byte string; decodeFrame reads one
// frame from the front of received bytes, checking every size against what
// the frame holds before anything is made of it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zet {
namespace NboAttrLog {

inline constexpr uint16_t kProtocolVersion = 1;
inline constexpr std::string_view kMagic = "ZATL";
inline constexpr uint32_t kMaxFrameBytes = 1u << 20;

enum class Kind : uint8_t {
  hello = 1,        // magic, u16 version: both ends, first
  refused = 2,      // text reason: the server will not serve this peer
  subscribe = 3,    // u32 subscription, text path
  unsubscribe = 4,  // u32 subscription
  notFound = 5,     // u32 subscription: nothing at the path
  entity = 6,       // u32 subscription, u32 id, u32 parent id, text name, text type, attributes
  update = 7,       // u32 subscription, u32 id, attributes
  remove = 8,       // u32 subscription, u32 id: the entity and all below it are gone
  snapshotEnd = 9,  // u32 subscription: the snapshot is complete
};

// Attributes are a u32 count, then per attribute a u32 identifier and a text.
struct AttributeText {
  uint32_t id;
  std::string_view text;
};

// One decoded frame. Texts point into the received bytes and are valid until
// those change.
struct Message {
  Kind kind{};
  uint16_t version = 0;
  uint32_t subscription = 0;
  uint32_t id = 0;
  uint32_t parent = 0;
  std::string_view name;  // entity: its name; subscribe: the path; refused: the reason
  std::string_view type;
  std::vector<AttributeText> attributes;
};

enum class Decoded { frame, needMore, malformed };

// Decodes the frame at the front of bytes into message, setting used to its
// length. needMore: the frame is not all there yet; malformed: the bytes
// cannot be a frame of this protocol (error says why).
Decoded decodeFrame(std::string_view bytes, Message& message, size_t& used, std::string& error);

// What a peer's first frame says; both ends check it the same way.
enum class Greeting { accepted, missing, otherVersion };
Greeting greetingOf(Message const& first);
// Why a first frame that is not accepted ends the conversation, naming the
// peer: "P did not begin with a greeting", "P speaks protocol version 2, this
// process 1".
std::string greetingProblem(Greeting greeting, Message const& first, std::string_view peer);

// Appends frames to out. An entity or update frame is opened, given its
// attributes and closed; an attribute that would make the frame larger than
// kMaxFrameBytes is left out (and counted in droppedAttributes).
class FrameWriter {
 public:
  explicit FrameWriter(std::string& out) : out_(out) {}

  void hello();
  void refused(std::string_view reason);
  void subscribe(uint32_t subscription, std::string_view path);
  void unsubscribe(uint32_t subscription) { idFrame(Kind::unsubscribe, subscription); }
  void notFound(uint32_t subscription) { idFrame(Kind::notFound, subscription); }
  void snapshotEnd(uint32_t subscription) { idFrame(Kind::snapshotEnd, subscription); }
  void remove(uint32_t subscription, uint32_t id);

  void entityOpen(uint32_t subscription, uint32_t id, uint32_t parent, std::string_view name, std::string_view type);
  void updateOpen(uint32_t subscription, uint32_t id);
  void attribute(uint32_t id, std::string_view text);
  void close();

  size_t droppedAttributes() const { return dropped_; }

 private:
  void open(Kind kind);
  void finish();
  void idFrame(Kind kind, uint32_t value);
  void u16(uint16_t v);
  void u32(uint32_t v);
  void text(std::string_view v);

  std::string& out_;
  size_t frameStart_ = 0;  // offset of the open frame's size field
  size_t countAt_ = 0;     // offset of the open frame's attribute count
  uint32_t count_ = 0;
  size_t dropped_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Zet
