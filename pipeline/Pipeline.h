// The root of a pipeline: a machine that is written as streams from inputs to outputs.
// Owns: a machine per input, and for each output its reconciliation. Reads: its inputs. Writes: its
// outputs, its scan and output states. Runs: two scans over all inputs when it is made (see
// pipeline/InputStateMachine.h), then a reconciliation of each output, then in reactors only. With
// a scheduler scans and reconciliations are tasks that yield; without one they run to their end
// inside the constructor. Caveat: no position outlives the process; a restart scans from the start.
//
// A pipeline declares its records, its outputs and its streams in its constructor, in the order in
// which its inputs are to be scanned, and then calls `begin`:
//
//   class SomeSm final : public Lynthe::Pipeline {
//    public:
//     using Pipeline::veskCount;
//     using Pipeline::veskField;
//     VESK_RECORD(...)
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "pipeline/InputStateMachine.h"
#include "pipeline/SmControl.h"
#include "pipeline/Sources.h"
#include "pipeline/Stream.h"
#include "runtime/Record.h"

namespace Lynthe {

/// The names of a stream: its number in the pipeline, the literal text of its stage, and the bit
/// that tells when its scan is done.
struct StreamName {
  unsigned number;
  std::string_view text;
  Flag scan;
};

/// An inner collection, or value, of a nested input, and the names of its stream.
template <class Tag>
struct Inner {
  Tag tag;
  StreamName name;
};
template <class Tag>
[[nodiscard]] Inner<Tag> inner(Tag tag, StreamName name) {
  return {tag, std::move(name)};
}

/// What the pipeline knows of an output.
class OutputBase : public Vesk::Part {
 public:
  OutputBase(Pipeline* root, std::string_view name, Flag ready);
  ~OutputBase() override;
  /// All inputs have been scanned: drops what no scan has produced.
  void inputReady();
  [[nodiscard]] bool isReady() const { return ready_.get(); }

 protected:
  /// From the bookmark on; false if the turn is used up.
  virtual bool reconcileRows(Gen::Turn& turn, std::size_t& deleted) = 0;

 private:
  class ReconciliationTask;
  void reconcile();
  void activeIs(bool active) override;

  Pipeline* const root_;
  const std::string_view name_;
  const Flag ready_;
  std::unique_ptr<ReconciliationTask> task_;
};

class Pipeline : public Vesk::Machine {
  VESK_RECORD(Lynthe::Pipeline)
 public:
  /// No scheduler was given.
  VESK_VALUE(bool, synchronous)
  VESK_VALUE(bool, initialized)
  /// Every input has been scanned once.
  VESK_VALUE(bool, initialScanDone)
  /// By the machine's name; that of a row by the name and the row's key.
  VESK_INSTANCES(std::string, Gen::InputStateMachine, inputSm)

  [[nodiscard]] const SmControl& control() const { return control_; }
  [[nodiscard]] const std::string& name() const { return control_.name; }
  [[nodiscard]] const Vesk::TraceHandle& trace() const { return trace_; }
  /// All outputs have been reconciled.
  [[nodiscard]] bool ready() const { return ready_ && ready_->get(); }
  /// Withdraws everything that came from the inputs, in the order of their creation.
  void doDeleteAll();

  /// The scan of a stream, or of a row of one, is done.
  void scansMayBeDone();
  /// An output has been reconciled.
  void outputReady();

 protected:
  Pipeline(std::string_view className, SmControl control, const Vesk::TraceHandle& trace);

  /// `record.collection[]`, as the input machine of this name.
  template <class Record, class Tag>
  auto from(std::string machineName, const Ombra::Ptr<Record>& input, Tag, StreamName name);
  /// `record.collection[].inner[]`, as the input machine of this name with one machine for each
  /// row; a stream for each inner collection or value.
  template <class Record, class Tag, class... InnerTags>
  auto fromEach(std::string machineName, std::string rowName, const Ombra::Ptr<Record>& input, Tag,
                Inner<InnerTags>... inner);
  /// The events of all of them. Keeps nothing.
  template <class Event, class... Streams>
  [[nodiscard]] Stream<Event> merge(const Stream<Event>& first, const Streams&... others) const {
    Stream<Event> merged(trace_);
    const auto join = [&](const Stream<Event>& stream) {
      stream.to([merged](const Event& event) { merged.push(event); });
    };
    join(first);
    (join(others), ...);
    return merged;
  }
  /// The streams stand: the first scans begin. `idle` tells when all scans have stopped, `ready`
  /// when all outputs are reconciled.
  void begin(Flag idle, Flag ready);
  /// Sends every row of every input through the stages again.
  void replay();

  /// A pointer argument that is not optional.
  static void mustBePresent(const auto& argument, std::string_view text) {
    if (argument == nullptr)
      Ombra::fatal(
          fmt::format("assertion failed: {} && \"Pointer SM args cannot be null unless they "
                      "are marked Optional\"",
                      text));
  }

 private:
  friend class OutputBase;
  [[nodiscard]] Gen::InputStateMachine& newInput(std::string machineName);
  /// Every stream is through its pass.
  [[nodiscard]] bool scansAreDone() const;
  void handleInitialScanDone();
  void handleOutputInputReady();

  const SmControl control_;
  const Vesk::TraceHandle& trace_;
  std::vector<Gen::InputStateMachine*> inputs_;  // in order of creation
  std::vector<Flag> bits_;                       // in order of check
  std::vector<OutputBase*> outputs_;
  std::optional<Flag> idle_, ready_;
};

template <class Record, class Tag>
auto Pipeline::from(std::string machineName, const Ombra::Ptr<Record>& input, Tag,
                    StreamName name) {
  using Key = typename Tag::Attr::Key;
  using Source = Gen::RowSource<Tag, Key>;
  InputStream<typename Source::Event> stream(trace_);
  Gen::InputStateMachine& machine = newInput(std::move(machineName));
  machine.sourceIs(std::make_unique<Source>(&machine, input, name.number, name.text, stream,
                                            [](const Key& key) { return key; }));
  machine.scanBits.push_back(name.scan);
  bits_.push_back(name.scan);
  return stream;
}

namespace Gen {

/// The stream of one inner collection or value, and what gives it to the machine of a row.
template <class Tag, class Outer>
struct InnerStream {
  template <class T>
  static constexpr bool isCollection = requires {
    typename T::Attr::Map;
  };
  template <class T>
  struct SourceOf {
    using Type = ValueSource<T, Outer>;
  };
  template <class T>
  requires isCollection<T>
  struct SourceOf<T> {
    using Type = RowSource<T, Nested<Outer, typename T::Attr::Key>>;
  };
  using Source = typename SourceOf<Tag>::Type;

  StreamName name;
  InputStream<typename Source::Event> stream;

  void give(InputStateMachine& machine, const Outer& outer,
            const Ombra::Ptr<typename Tag::Record const>& row) const {
    if constexpr (isCollection<Tag>) {
      using Key = typename Tag::Attr::Key;
      machine.sourceIs(std::make_unique<Source>(&machine, row, name.number, name.text, stream,
                                                [outer](const Key& key) {
                                                  return Nested<Outer, Key>{outer, key};
                                                }));
    } else {
      machine.sourceIs(
          std::make_unique<Source>(&machine, row, name.number, name.text, stream, outer));
    }
  }
};

}  // namespace Gen

template <class Record, class Tag, class... InnerTags>
auto Pipeline::fromEach(std::string machineName, std::string rowName,
                        const Ombra::Ptr<Record>& input, Tag, Inner<InnerTags>... inner) {
  using Outer = typename Tag::Attr::Key;
  using Source = Gen::NestedSource<Tag>;
  const std::tuple streams{Gen::InnerStream<InnerTags, Outer>{
      inner.name,
      InputStream<typename Gen::InnerStream<InnerTags, Outer>::Source::Event>(trace_)}...};
  const auto populate = [streams](Gen::InputStateMachine& machine, const Outer& outer,
                                  const typename Source::Row& row) {
    std::apply([&](const auto&... each) { (each.give(machine, outer, row), ...); }, streams);
  };
  Gen::InputStateMachine& machine = newInput(std::move(machineName));
  const StreamName& first = std::get<0>(streams).name;
  machine.sourceIs(std::make_unique<Source>(&machine, input, first.number, first.text,
                                            std::move(rowName), populate));
  for (const Flag& bit : {inner.name.scan...}) {
    machine.scanBits.push_back(bit);
    bits_.push_back(bit);
  }
  return std::apply([](const auto&... each) { return std::make_tuple(each.stream...); }, streams);
}

}  // namespace Lynthe
