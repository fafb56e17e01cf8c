#include "runtime/shm/TableWaiter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <filesystem>
#include <linux/futex.h>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace VeskSharedMem {
namespace {

namespace fs = std::filesystem;
using Bell = TableReader::Bell;
using std::chrono::milliseconds;

/// Between two looks at tables that cannot wake us.
constexpr milliseconds lookInterval{5};
/// The kernel waits on 128 words at once, of which one is the sleeper's own.
constexpr std::size_t bellsPerSleeper = FUTEX_WAITV_MAX - 1;

futex_waitv waitOn(const std::uint32_t* word, std::uint32_t value, std::uint32_t flags) {
  futex_waitv entry{};
  entry.val = value;
  entry.uaddr = reinterpret_cast<std::uintptr_t>(word);
  entry.flags = FUTEX_32 | flags;
  return entry;
}

/// The nearest directory above a file that exists.
std::string nearestDirectory(const std::string& file) {
  fs::path directory = fs::path(file).parent_path();
  std::error_code ignored;
  while (!directory.empty() && !fs::is_directory(directory, ignored) &&
         directory != directory.parent_path())
    directory = directory.parent_path();
  return directory.empty() ? "." : directory.string();
}

}  // namespace

/// One thread: waits on its words, says once that one was rung, and waits to be given words again.
class TableWaiter::Sleeper {
 public:
  explicit Sleeper(int rung) : rung_(rung) {
    // Signals are the business of the thread that calls `wait`: one that went here would not end
    // its sleep.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  ~Sleeper() {
    isOver_ = true;
    rouse();
    thread_.join();
  }
  /// Returns without disturbing the thread if it waits on just these.
  void bellsAre(std::vector<Bell> bells) {
    {
      const std::lock_guard guard(mutex_);
      if (isArmed_ && same(bells, bells_)) return;
      bells_ = std::move(bells);
      isArmed_ = true;
    }
    rouse();
  }

 private:
  static bool same(const std::vector<Bell>& one, const std::vector<Bell>& other) {
    return std::equal(
        one.begin(), one.end(), other.begin(), other.end(),
        [](const Bell& a, const Bell& b) { return a.word == b.word && a.value == b.value; });
  }
  void rouse() {
    turn_.fetch_add(1);
    syscall(SYS_futex, &turn_, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
  }
  void run() {
    while (!isOver_) {
      const std::uint32_t turn = turn_;
      std::vector<futex_waitv> words{
          waitOn(reinterpret_cast<const std::uint32_t*>(&turn_), turn, FUTEX_PRIVATE_FLAG)};
      {
        const std::lock_guard guard(mutex_);
        if (isArmed_)
          for (const Bell& bell : bells_)
            words.push_back(waitOn(bell.word, bell.value, 0));
      }
      const long woken = syscall(SYS_futex_waitv, words.data(), words.size(), 0, nullptr, 0);
      if (woken < 0 && errno == ENOSYS) std::this_thread::sleep_for(lookInterval);
      if (turn_ == turn && (woken >= 0 || errno != EINTR)) ring();
    }
  }
  /// A word was rung, had changed already, or is not there any more.
  void ring() {
    {
      const std::lock_guard guard(mutex_);
      isArmed_ = false;
    }
    static_cast<void>(eventfd_write(rung_, 1));
  }

  const int rung_;
  std::mutex mutex_;
  std::vector<Bell> bells_;
  bool isArmed_ = false;
  std::atomic<bool> isOver_ = false;
  std::atomic<std::uint32_t> turn_ = 0;
  std::thread thread_;
};

TableWaiter::TableWaiter()
    : rung_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      arrivals_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}

TableWaiter::~TableWaiter() = default;

TableWaiter::Woken TableWaiter::wait(const Watched& watched, milliseconds timeout) {
  if (watchDirectories(watched.paths)) return Woken::byFile;
  eventfd_t ignored = 0;
  static_cast<void>(eventfd_read(rung_.get(), &ignored));
  std::vector<Bell> bells;
  bool mustLook = false;
  for (const Table& table : watched.tables) {
    if (!table.reader->isSound()) return Woken::byFile;
    bells.push_back(table.reader->bellBeforeSleep());
    if (bells.back().word == nullptr) {
      mustLook = true;
      bells.pop_back();
    }
    if (!table.reader->isCaughtUp(table.cursor)) return Woken::byTable;
  }
  arm(bells);
  if (mustLook) timeout = std::min(timeout, lookInterval);
  std::array<pollfd, 2> ends{{{rung_.get(), POLLIN, 0}, {arrivals_.get(), POLLIN, 0}}};
  const int ready = poll(ends.data(), ends.size(), static_cast<int>(timeout.count()));
  if (ready < 0) return Woken::bySignal;
  if (ends[1].revents != 0 && drainArrivals()) return Woken::byFile;
  return ready > 0 ? Woken::byTable : Woken::byTimeout;
}

void TableWaiter::arm(const std::vector<Bell>& bells) {
  const std::size_t count = (bells.size() + bellsPerSleeper - 1) / bellsPerSleeper;
  while (sleepers_.size() < count)
    sleepers_.push_back(std::make_unique<Sleeper>(rung_.get()));
  for (std::size_t i = 0; i < sleepers_.size(); ++i) {
    const std::size_t from = std::min(i * bellsPerSleeper, bells.size());
    const std::size_t to = std::min(from + bellsPerSleeper, bells.size());
    sleepers_[i]->bellsAre({bells.begin() + static_cast<std::ptrdiff_t>(from),
                            bells.begin() + static_cast<std::ptrdiff_t>(to)});
  }
}

/// A file whose directory is not there yet is looked for from the nearest one that is.
bool TableWaiter::watchDirectories(const std::vector<std::string>& paths) {
  if (!directories_.empty() && paths == paths_) return false;
  paths_ = paths;
  bool isNew = false;
  for (const std::string& path : paths) {
    const std::string directory = nearestDirectory(path);
    if (!directories_.insert(directory).second) continue;
    isNew = true;
    inotify_add_watch(
        arrivals_.get(), directory.c_str(),
        IN_CREATE | IN_MODIFY | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF);
  }
  return isNew;
}

bool TableWaiter::drainArrivals() {
  alignas(inotify_event) std::array<char, 8192> buffer;
  bool isAny = false;
  while (read(arrivals_.get(), buffer.data(), buffer.size()) > 0)
    isAny = true;
  // A directory that was made anew has to be watched anew.
  if (isAny) directories_.clear();
  return isAny;
}

}  // namespace VeskSharedMem
