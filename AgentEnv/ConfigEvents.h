#pragma once
// ConfigEvents: what the grammar finds in a configuration file, as events in
// the order of the file, and the queue that hands them in batches from the
// reader (ConfigReader), which scans and parses, to the ConfigFileParser,
// which fills the config dir and writes the diagnostics.
//
// Everything the reading of a file does to the world outside the reader
// passes through an event: entries, attributes, includes, diagnostics,
// echoed bytes and remarks. So the reader may run on a thread of its own
// while the parser applies what it found on the caller's, and the parser
// still sees one file's findings in file order, as if read on its thread.
// An event's text is bytes in its batch: the parser makes the names it
// keeps, on its thread, so that they go back to that thread's blocks when
// they are dropped.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "AgentEnv/ConfigFileParser.h"

namespace Zet {

struct ConfigEvent {
  enum class Kind : uint8_t {
    entityOpens,            // text: the entity's name
    entityCloses,           //
    attribute,              // attribute, text: its value
    attributeAgain,         // attribute: the same value as the previous one of that attribute in the file
    include,                // text: the name of the file included
    error,                  // text: a syntax error's whole line, newline included
    echo,                   // text: bytes the language ignores
    strayByte,              // byte: ignored beside a name
    undefinedSubstitution,  // text: the substitution's name
  };
  Kind kind;
  unsigned char byte = 0;
  ConfigFileParser::AttributeType attribute{};
  unsigned long line = 0;  // where in the file the event was found
  uint32_t textStart = 0;  // in the batch's texts
  uint32_t textSize = 0;
};

// Events and their texts, one after another. A text is at most a line,
// 64 MiB, and a batch is posted once its texts pass kFullTextBytes, so
// 32 bits hold where a text starts.
struct ConfigEventBatch {
  static constexpr size_t kFullTextBytes = size_t(1) << 20;

  std::vector<ConfigEvent> events;
  std::string texts;

  std::string_view text(ConfigEvent const& event) const { return {texts.data() + event.textStart, event.textSize}; }
  void add(ConfigEvent event, std::string_view text) {
    event.textStart = static_cast<uint32_t>(texts.size());
    event.textSize = static_cast<uint32_t>(text.size());
    texts.append(text);
    events.push_back(event);
  }
  bool empty() const { return events.empty(); }
  void clear() {
    events.clear();
    texts.clear();
  }
};

// One producer and one consumer. Batches posted wait, at most `limit` of
// them: a producer ahead of its consumer by that much waits for it, so a
// large file costs a bounded number of events in memory.
class ConfigEventQueue {
 public:
  using Batch = ConfigEventBatch;
  static constexpr size_t kBatchEvents = 4096;

  explicit ConfigEventQueue(size_t limit) : limit_(limit) {}
  ConfigEventQueue(ConfigEventQueue const&) = delete;
  ConfigEventQueue& operator=(ConfigEventQueue const&) = delete;

  // ---- The producer ----------------------------------------------------------

  // Hands `batch` over and leaves an empty batch in its place, with room
  // for kBatchEvents. False, the events dropped, once the consumer has
  // abandoned the queue.
  bool post(Batch& batch);
  // Nothing more will be posted.
  void close();

  // ---- The consumer ----------------------------------------------------------

  // Replaces `batch`, whose events were applied and whose memory is reused,
  // by the next batch posted; false when the queue is closed and drained.
  bool take(Batch& batch);
  // Takes no more: a waiting producer goes on, and what it posts is dropped.
  void abandon();
  bool abandoned();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Batch> waiting_;
  std::vector<Batch> spare_;
  size_t const limit_;
  bool closed_ = false;
  bool abandoned_ = false;
};

}  // namespace Zet
