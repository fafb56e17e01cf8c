#include "pipeline/InputStateMachine.h"

#include "pipeline/Pipeline.h"

namespace Lynthe::Gen {

/// Goes on with a scan; the machine lives through it, and the task may go in it.
class Source::ScanTask final : public Sylva::Task {
 public:
  ScanTask(Source& source, const SmControl& control, std::string name)
      : Task(control.taskScheduler, control.taskPriority, std::move(name)), source_(source) {}

 private:
  void run() override {
    const Vesk::HeldMachine alive(source_.machine_);
    source_.doScan();
  }
  Source& source_;
};

Source::Source(InputStateMachine* machine, Ombra::Ptr<const Vesk::Entity> input,
               Ombra::FieldId field, unsigned number, std::string_view text)
    : Part(machine),
      machine_(machine),
      number_(number),
      text_(text),
      ear_(this, machine, field),
      input_(std::move(input)) {
  Source::activeIs(machine->hasNotificationActive());
  machine->scanStateIs(number_, state_);
  const Pipeline& root = machine->root();
  if (root.synchronous()) return;
  task_ = std::make_unique<ScanTask>(
      *this, root.control(),
      fmt::format("{}-{}InputScanTask{}", root.name(), machine->name(), number_));
}

Source::~Source() = default;

void Source::heard(Vesk::Listener& self, Ombra::FieldId, const void* key) {
  Source& source = *static_cast<Ear&>(self).source;
  InputStateMachine& machine = *source.machine_;
  machine.inReactorIs(true);
  source.handle(key);
  machine.inReactorIs(false);
}

void Source::activeIs(bool active) {
  ear_.attach(active ? input_.get() : nullptr);
  if (task_) task_->activeIs(active);
}

void Source::scanStateIs(ScanState state) {
  state_ = state;
  machine_->scanStateIs(number_, state);
}

bool Source::inputScanComplete() const {
  return state_ == ScanState::finished ||
         (state_ == ScanState::firstPass && !machine_->root().initialScanDone());
}

void Source::doInputScan() {
  if (task_) {
    task_->scheduleTask();
  } else {
    doScan();
  }
}

void Source::doScan() {
  if (inputScanComplete()) return;
  Pipeline& root = machine_->root();
  Turn turn(task_.get());
  const bool isThrough = scanRows(turn);
  if (task_) task_->taskWorkCountInc(turn.rows());
  if (!isThrough) {
    if (auto t = root.trace().at(8))
      t << root.name() << " " << machine_->name() << " yielding after " << turn.rows()
        << " iterations (" << task_->taskWorkCount() << " total items)";
    scanStateIs(ScanState::yielded);
    task_->taskWorkPendingIs(1);
    task_->scheduleTask();
    return;
  }
  if (auto t = root.trace().at(9))
    t << machine_->name() << (root.initialScanDone() ? "" : " initial")
      << " scan complete. Processed " << turn.rows() << " children. ";
  if (root.initialScanDone()) {
    scanStateIs(ScanState::finished);
    task_.reset();
  } else {
    task_ ? task_->taskWorkPendingIs(0) : void();
    scanStateIs(ScanState::firstPass);
  }
  machine_->scanDone();
}

bool Source::stagesRun() const {
  return machine_->root().initialScanDone();
}

void Source::traceEvent(const std::string& key) const {
  if (auto t = machine_->root().trace().at(8)) t << text_ << ": " << key;
}

InputStateMachine::InputStateMachine(Pipeline& root, Source* parent, std::string name)
    : root_(root), parent_(parent) {
  nameIs(std::move(name));
}
InputStateMachine::~InputStateMachine() = default;

const Vesk::Machine& InputStateMachine::worker() const {
  return root_;
}

void InputStateMachine::childSmIs(const std::string& key,
                                  const Ombra::Ptr<InputStateMachine>& child) {
  childSm_[key] = child;
  root_.inputSmAdopt(child->name() + "," + key, child);
}

void InputStateMachine::childSmDel(const std::string& key) {
  const auto child = std::move(childSm_[key]);
  childSm_.erase(key);
  root_.inputSmDel(child->name() + "," + key);
}

void InputStateMachine::doInputScan() {
  for (const auto& source : sources_)
    source->doInputScan();
}

bool InputStateMachine::inputScanComplete() const {
  for (const auto& source : sources_)
    if (!source->inputScanComplete()) return false;
  for (const auto& [key, child] : childSm_)
    if (!child->inputScanComplete()) return false;
  return true;
}

void InputStateMachine::doDeleteAll() {
  for (const auto& source : sources_)
    source->doDeleteAll();
}

void InputStateMachine::replay() {
  for (const auto& source : sources_)
    source->replay();
}

bool InputStateMachine::streamComplete(std::size_t place) const {
  // Rows that hold rows are one scan, however many streams come out of them.
  if (!sources_[std::min(place, sources_.size() - 1)]->inputScanComplete()) return false;
  for (const auto& [key, child] : childSm_)
    if (!child->sources_[place]->inputScanComplete()) return false;
  return true;
}

void InputStateMachine::scanDone() {
  if (parent_ != nullptr) return parent_->machine().scanDone();
  for (std::size_t i = 0; i < scanBits.size(); ++i)
    if (!scanBits[i].get() && streamComplete(i)) scanBits[i].is(true);
  root_.scansMayBeDone();
}

}  // namespace Lynthe::Gen

VESK_REGISTER(Lynthe::Gen::InputStateMachine)
