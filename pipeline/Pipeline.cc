#include "pipeline/Pipeline.h"

namespace Lynthe {

// --- an output

class OutputBase::ReconciliationTask final : public Sylva::Task {
 public:
  ReconciliationTask(OutputBase& output, const SmControl& control, std::string name)
      : Task(control.taskScheduler, control.taskPriority, std::move(name)), output_(output) {}

 private:
  void run() override {
    const Vesk::HeldMachine alive(output_.root_);
    output_.reconcile();
  }
  OutputBase& output_;
};

OutputBase::OutputBase(Pipeline* root, std::string_view name, Flag ready)
    : Part(root), root_(root), name_(name), ready_(ready) {
  root_->outputs_.push_back(this);
  if (!root_->synchronous())
    task_ = std::make_unique<ReconciliationTask>(
        *this, root_->control(), fmt::format("{}-{}ReconciliationTask", root_->name(), name_));
  if (auto t = root_->trace().at(8)) t << "Reconciling " << name_ << ": {}";
}

OutputBase::~OutputBase() = default;

void OutputBase::activeIs(bool active) {
  if (task_) task_->activeIs(active);
}

void OutputBase::inputReady() {
  if (isReady()) {
    if (auto t = root_->trace().at(8)) t << name_ << " already ready, not reconciling.";
    return;
  }
  if (auto t = root_->trace().at(8)) t << "Input scans for " << name_ << " complete";
  if (task_) {
    task_->scheduleTask();
  } else {
    reconcile();
  }
}

void OutputBase::reconcile() {
  Gen::Turn turn(task_.get());
  std::size_t deleted = 0;
  const bool isThrough = reconcileRows(turn, deleted);
  if (task_) task_->taskWorkCountInc(turn.rows());
  if (!isThrough) {
    if (auto t = root_->trace().at(8))
      t << "Yielding in reconciliation processing after processing " << turn.rows()
        << " items, including " << deleted << " deletions .";
    task_->scheduleTask();
    return;
  }
  if (auto t = root_->trace().at(8))
    t << "Deletion scan for reconciliation is done, last task run processed " << turn.rows()
      << " items, deleting " << deleted << " items.";
  task_.reset();
  ready_.is(true);
  root_->outputReady();
}

// --- the pipeline

Pipeline::Pipeline(std::string_view className, SmControl control, const Vesk::TraceHandle& trace)
    : control_([&] {
        if (control.name.empty()) control.name = className;
        return std::move(control);
      }()),
      trace_(trace) {
  synchronousIs(control_.taskScheduler == nullptr);
}

Gen::InputStateMachine& Pipeline::newInput(std::string machineName) {
  const auto input = Ombra::make<Gen::InputStateMachine>(*this, nullptr, machineName);
  inputSmAdopt(std::move(machineName), input);
  inputs_.push_back(input.get());
  return *input;
}

void Pipeline::begin(Flag idle, Flag ready) {
  idle_ = idle;
  ready_ = ready;
  if (auto t = trace_.at(8)) t << "create local SMs";
  for (Gen::InputStateMachine* input : inputs_)
    input->doInputScan();
  initializedIs(true);
  handleOutputInputReady();
}

void Pipeline::scansMayBeDone() {
  if (!initialized()) return;  // the constructor asks when all scans have begun
  if (!initialScanDone()) return handleInitialScanDone();
  if (!synchronous() && !ready()) handleOutputInputReady();
}

bool Pipeline::scansAreDone() const {
  for (const Flag& bit : bits_) {
    if (bit.get()) continue;
    constexpr std::string_view suffix = "Scan";
    if (auto t = trace_.at(9))
      t << " " << bit.name().substr(0, bit.name().size() - suffix.size()) << " scan is false";
    return false;
  }
  for (const Gen::InputStateMachine* input : inputs_) {
    if (input->inputScanComplete()) continue;
    if (auto t = trace_.at(9)) t << "Initial scan yielding for child SM " << name() << ".";
    return false;
  }
  return true;
}

void Pipeline::handleInitialScanDone() {
  if (initialScanDone() || !scansAreDone()) return;
  if (auto t = trace_.at(8))
    t << "Initial scan done for child SMs. Now scanning with events triggered.";
  initialScanDoneIs(true);
  for (const Flag& bit : bits_)
    bit.is(false);
  for (Gen::InputStateMachine* input : inputs_)
    input->doInputScan();
  handleOutputInputReady();
}

void Pipeline::handleOutputInputReady() {
  if (!initialized() || !scansAreDone()) return;
  if (!initialScanDone()) return handleInitialScanDone();
  idle_->is(true);
  for (OutputBase* output : outputs_)
    output->inputReady();
}

void Pipeline::outputReady() {
  for (const OutputBase* output : outputs_)
    if (!output->isReady()) return;
  ready_->is(true);
}

void Pipeline::doDeleteAll() {
  for (Gen::InputStateMachine* input : inputs_)
    input->doDeleteAll();
}

void Pipeline::replay() {
  if (!initialScanDone()) return;
  for (Gen::InputStateMachine* input : inputs_)
    input->replay();
}

}  // namespace Lynthe

VESK_REGISTER(Lynthe::Pipeline)
