// What a pipeline reads, one machine per input and one nested machine per row of a nested input.
// Owns: its streams' subscriptions and scans; the machines of its rows. Reads: its input. Writes:
// nothing but the state of its scans. Runs: on each change of the input, and twice over all of it
// when the pipeline starts. The first pass makes the nested machines and fills indices, so that the
// stages, which look across inputs, find all of them; the second one sends every row through the
// stages. Caveat: until all first passes are through an event ends here.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pipeline/Flag.h"
#include "pipeline/Stream.h"
#include "runtime/MachineTask.h"
#include "runtime/Slice.h"

namespace Lynthe {

class Pipeline;

/// How far the scan of a stream has come.
enum class ScanState : std::uint8_t { notBegun = 0, yielded = 1, finished = 2, firstPass = 3 };

}  // namespace Lynthe

template <>
struct Vesk::EnumNames<Lynthe::ScanState> {
  static constexpr std::string_view name = "Lynthe::ScanState";
  using enum Lynthe::ScanState;
  static constexpr auto values =
      std::to_array<Vesk::EnumName<Lynthe::ScanState>>({{notBegun, "notBegun"},
                                                        {yielded, "yielded"},
                                                        {finished, "finished"},
                                                        {firstPass, "firstPass"}});
};

namespace Lynthe::Gen {

class InputStateMachine;

/// One slice of a scan; without a task it has no end.
class Turn {
 public:
  explicit Turn(const Sylva::Task* task) {
    if (task != nullptr) slice_.emplace(*task);
  }
  /// Takes one more row; false if the task must yield first.
  [[nodiscard]] bool take() {
    if (slice_ && !slice_->take()) return false;
    ++rows_;
    return true;
  }
  [[nodiscard]] std::size_t rows() const { return rows_; }

 private:
  std::optional<Sylva::Slice> slice_;
  std::size_t rows_ = 0;
};

/// One stream of an input machine: its subscription and its scan.
class Source : public Vesk::Part {
 public:
  /// `number` is the stream's in the pipeline, `text` the literal text of its stage.
  Source(InputStateMachine* machine, Ombra::Ptr<const Vesk::Entity> input, Ombra::FieldId field,
         unsigned number, std::string_view text);
  ~Source() override;

  /// Begins the scan of the present pass, or goes on with it.
  void doInputScan();
  /// All rows of the present pass have been handled; those inside of them are their machines'
  /// business.
  [[nodiscard]] bool inputScanComplete() const;
  /// Withdraws everything that came from here.
  virtual void doDeleteAll() = 0;
  /// Sends every row through the stages again.
  virtual void replay() = 0;

  [[nodiscard]] InputStateMachine& machine() const { return *machine_; }
  [[nodiscard]] unsigned number() const { return number_; }

 protected:
  /// From the bookmark on; false if the turn is used up, with the bookmark at the next row.
  virtual bool scanRows(Turn& turn) = 0;
  /// The row under this key may have changed.
  virtual void handle(const void* key) = 0;
  /// Brings an event to the indices, and once all first passes are through to the stages.
  template <class Stream, class Event>
  void emitted(const Stream& stream, const Event& event) const {
    stream.index(event);
    if (!stagesRun()) return;
    traceEvent(keyText(event.key));
    stream.push(event);
  }

 private:
  [[nodiscard]] bool stagesRun() const;
  void traceEvent(const std::string& key) const;
  struct Ear : Vesk::Listener {
    Ear(Source* of, Vesk::Machine* owner, Ombra::FieldId field)
        : Listener(owner, field, &Source::heard), source(of) {}
    Source* const source;
  };
  static void heard(Vesk::Listener& self, Ombra::FieldId, const void* key);
  void doScan();
  void scanStateIs(ScanState state);
  void activeIs(bool active) override;

  InputStateMachine* const machine_;
  const unsigned number_;
  const std::string_view text_;
  Ear ear_;
  Ombra::Ptr<const Vesk::Entity> input_;
  class ScanTask;
  std::unique_ptr<ScanTask> task_;
  ScanState state_ = ScanState::notBegun;
};

class InputStateMachine final : public Vesk::Machine {
  VESK_RECORD(Lynthe::Gen::InputStateMachine)
 public:
  /// `parent` is the source whose row this machine is for, null for an input of the pipeline.
  InputStateMachine(Pipeline& root, Source* parent, std::string name);
  ~InputStateMachine() override;

  VESK_VALUE(std::string, name)
  /// By the number of the stream; of a nested input, of the rows that hold rows.
  VESK_MAP(unsigned, ScanState, scanState)

  [[nodiscard]] Pipeline& root() const { return root_; }
  [[nodiscard]] const Vesk::Machine& worker() const override;
  /// The machines of a nested input's rows, by the text of the row's key. The pipeline shows them
  /// beside this one.
  using Children = std::map<std::string, Ombra::Ptr<InputStateMachine>>;
  [[nodiscard]] const Children& childSm() const { return childSm_; }
  void childSmIs(const std::string& key, const Ombra::Ptr<InputStateMachine>& child);
  void childSmDel(const std::string& key);

  [[nodiscard]] bool inReactor() const { return inReactor_; }
  void inReactorIs(bool inReactor) { inReactor_ = inReactor; }

  void sourceIs(std::unique_ptr<Source> source) { sources_.push_back(std::move(source)); }
  [[nodiscard]] const std::vector<std::unique_ptr<Source>>& sources() const { return sources_; }

  /// Scans all streams.
  void doInputScan();
  [[nodiscard]] bool inputScanComplete() const;
  void doDeleteAll();
  void replay();
  /// A stream of this machine, or of a row's machine, is through its pass, or has gone.
  void scanDone();

  /// The bits of the pipeline that stand for this machine's streams, in order.
  std::vector<Flag> scanBits;

 private:
  /// The stream with this place among the bits, with that of each row's machine.
  [[nodiscard]] bool streamComplete(std::size_t place) const;

  Pipeline& root_;
  Source* const parent_;
  bool inReactor_ = false;
  Children childSm_;
  std::vector<std::unique_ptr<Source>> sources_;
};

}  // namespace Lynthe::Gen
