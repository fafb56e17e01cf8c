#include "host/play/PlayDirectory.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "host/InputError.h"
#include "runtime/shm/TableClaim.h"

namespace Host {
namespace {

namespace fs = std::filesystem;

constexpr const char* parts[] = {"shm", "database", "toggles", "trace"};
/// Says that what lies beside it under the names above is ours to remove.
constexpr const char* marker = ".corvane";
/// A process that was killed a moment ago may take a little to let go.
constexpr int attempts = 50;
constexpr std::chrono::milliseconds pause{10};

[[noreturn]] void fail(const fs::path& path, const std::string& reason) {
  throw InputError(fmt::format("{}: {}", path.string(), reason));
}

void require(const fs::path& path, const std::error_code& error) {
  if (error) fail(path, error.message());
}

/// What is wrong with taking over these tables; empty if nothing is.
std::string holderIn(const fs::path& tables) {
  std::error_code error;
  for (fs::recursive_directory_iterator it(tables, error), end; !error && it != end;
       it.increment(error)) {
    const std::string file = it->path().string();
    const auto holder = VeskSharedMem::TableClaim::holderOf(file);
    if (!holder) continue;
    const std::string who = *holder == 0 ? "another process" : fmt::format("process {}", *holder);
    return fmt::format("expected no other writer, found {} holding {}", who, file);
  }
  return {};
}

/// Rings of agents that are gone tell how they went: those of the last ones stay.
void keepNewest(const fs::path& rings) {
  constexpr std::size_t kept = 5;
  std::vector<std::pair<fs::file_time_type, fs::path>> found;
  std::error_code error;
  for (fs::directory_iterator it(rings, error), end; !error && it != end; it.increment(error))
    found.emplace_back(it->last_write_time(error), it->path());
  std::sort(found.rbegin(), found.rend());
  for (std::size_t i = kept; i < found.size(); ++i)
    fs::remove_all(found[i].second, error);
}

}  // namespace

PlayDirectory::PlayDirectory(const std::optional<fs::path>& keep, bool resume)
    : isKept_(keep.has_value()) {
  if (keep) {
    path_ = *keep;
    std::error_code error;
    fs::create_directories(path_, error);
    require(path_, error);
    claim();
    mark();
    clear(resume);
  } else {
    std::string pattern = (fs::temp_directory_path() / "corvane-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) fail(pattern, std::generic_category().message(errno));
    path_ = pattern;
  }
  for (const char* part : parts) {
    std::error_code error;
    fs::create_directories(path_ / part, error);
    require(path_ / part, error);
  }
}

PlayDirectory::~PlayDirectory() {
  std::error_code ignored;
  if (!isKept_) fs::remove_all(path_, ignored);
}

/// The lock is for players, which may not have a table yet; other writers have claimed their
/// tables.
void PlayDirectory::claim() {
  lock_ = VeskSharedMem::FileDescriptor(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock_.isOpen()) fail(path_, std::generic_category().message(errno));
  std::string reason;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (attempt > 0) std::this_thread::sleep_for(pause);
    reason = holderIn(path_ / "shm");
    if (!reason.empty()) continue;
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return;
    if (errno != EWOULDBLOCK) fail(path_, std::generic_category().message(errno));
    reason = "another player is at work in this directory";
  }
  fail(path_, reason);
}

void PlayDirectory::mark() const {
  struct stat status {};
  if (fstat(lock_.get(), &status) != 0) fail(path_, std::generic_category().message(errno));
  if (status.st_uid != geteuid())
    fail(path_, fmt::format("belongs to another user, number {}", status.st_uid));
  const fs::path own = path_ / marker;
  std::error_code error;
  if (fs::exists(own, error)) return;
  if (!fs::is_empty(path_, error) || error)
    fail(path_,
         fmt::format("is neither empty nor the directory of a former run, which has a file {}",
                     marker));
  const VeskSharedMem::FileDescriptor made(
      open(own.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!made.isOpen()) fail(own, std::generic_category().message(errno));
}

void PlayDirectory::clear(bool resume) const {
  for (const char* part : parts) {
    const bool isOutput = part == std::string_view("shm") || part == std::string_view("database");
    if (resume && isOutput) continue;
    if (resume && part == std::string_view("trace")) {
      keepNewest(path_ / part);
      continue;
    }
    std::error_code error;
    fs::remove_all(path_ / part, error);
    require(path_ / part, error);
  }
}

}  // namespace Host
