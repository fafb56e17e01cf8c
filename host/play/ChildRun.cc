#include "host/play/ChildRun.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/InputError.h"
#include "host/play/AgentProcess.h"
#include "host/play/CrashLoop.h"
#include "host/play/KeptDatabase.h"
#include "host/play/PlayDirectory.h"
#include "host/play/Player.h"
#include "host/print/EntityJson.h"
#include "runtime/Assert.h"
#include "runtime/Fleetlog.h"
#include "runtime/Notify.h"
#include "runtime/RowFile.h"
#include "runtime/SharedMem.h"
#include "runtime/Toggle.h"
#include "runtime/Trace.h"
#include "runtime/shm/TableLayout.h"

namespace Host {
namespace {

namespace fs = std::filesystem;

constexpr int statusFailed = 1;
constexpr int statusUnusable = 2;
/// Variables that the agent reads: a scenario has its own or none.
constexpr std::array agentVariables{"FLEETLOG_DISABLE", "FLEETLOGDIR", "PIMFLSIZE"};

[[noreturn]] void systemFailed(const std::string& what) {
  throw InputError(fmt::format("{}: {}", what, std::strerror(errno)));
}

void writeToggles(const Scenario& scenario, const fs::path& directory) {
  std::map<std::string, Json> files;
  for (const auto& toggle : scenario.toggles)
    files[toggle.file][toggle.name] = Json::parse(toggle.json);
  for (const auto& [name, content] : files)
    if (!(std::ofstream(directory / name) << content.dump(2) << std::endl))
      systemFailed((directory / name).string());
}

/// The agent's variables are the scenario's. Throws std::system_error if a place that one names
/// cannot be made.
void setEnvironment(const Scenario& scenario, const PlayDirectory& directory) {
  for (const char* name : agentVariables)
    unsetenv(name);
  for (const auto& [name, value] : scenario.environment) {
    if (value && name == "FLEETLOGDIR") {
      const fs::path own = directory / "trace" / *value;
      fs::create_directories(own);
      setenv(name.c_str(), own.c_str(), 1);
    } else if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
}

/// In the child. The scenario's process ends without destructors, like the agents that it has seen
/// die.
[[noreturn]] void playHere(const Scenario& scenario, const PlayOptions& options, Report& report,
                           const PlayDirectory& directory, int progress) {
  // A write beyond the limit of file sizes fails then, as one on a full disk does.
  std::signal(SIGXFSZ, SIG_IGN);
  Ombra::installTerminateHandler();
  if (options.seed) {
    Sylva::TaskSchedulerRoot::findOrCreateScheduler()->shuffleSeedIs(*options.seed);
    Vesk::Publisher::shuffleSeedIs(*options.seed);
  }
  int status = statusFailed;
  // Only what says that an input cannot be used is caught; anything else ends this process as it
  // would end the agent.
  try {
    setEnvironment(scenario, directory);
    Orlane::toggleDirIs(directory / "toggles");
    Fleetlog::directoryIs(directory / "trace");
    VeskSharedMem::EntityManager::directoryIs((directory / "shm").string());
    if (Vesk::traceLevelsIs(options.traceLevels)) std::abort();  // checked before
    // Static, and the player is never destroyed: an agent that ends in order takes back what it
    // has published.
    static std::optional<KeptDatabase> database;
    if (options.keep) database.emplace(directory / "database");
    const auto begins = [&](std::size_t index) {
      if (write(progress, &index, sizeof index) != sizeof index) std::abort();
    };
    for (const RowLimit& limit : options.rowLimits)
      VeskSharedMem::rowLimitIs(limit.path, limit.rows);
    AgentProcess::servesFloodListsIs(options.floodLists);
    bool passed;
    if (options.crashAt) {
      passed = CrashLoop(scenario, report, directory / "crashes").ask(*options.crashAt);
    } else {
      auto& player = *new Player(scenario, report, options.stay, begins);
      if (options.stay && options.resume) player.actsOnly();
      if (options.wiring) player.wiringIs(*options.wiring);
      passed = player.play();
    }
    status = passed ? 0 : statusFailed;
  } catch (const Orlane::ConfigError& error) {
    fmt::print(stderr, "{}\n", error.what());
    status = statusUnusable;
  } catch (const VeskSharedMem::TableError& error) {
    fmt::print(stderr, "{}\n", error.what());
    status = statusUnusable;
  } catch (const std::system_error& error) {
    fmt::print(stderr, "{}\n", error.what());
    status = statusUnusable;
  }
  std::fflush(stdout);
  std::fflush(stderr);
  VeskSharedMem::EntityManager::getEntityManager()->signOff();
  _exit(status);
}

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) systemFailed("pipe");
    readEnd = ends[0];
    writeEnd = ends[1];
  }
};

/// Sees to it that an interrupt leaves no directory behind: the child ends, what was made for it is
/// removed, and then the signal takes its course. An agent that stays is ended in order instead,
/// and the player goes on to report.
class Interrupts {
 public:
  explicit Interrupts(bool isForAgent) : isForAgent_(isForAgent) {
    child_ = 0;
    signal_ = 0;
    forwards_ = isForAgent;
    struct sigaction action {};
    action.sa_handler = [](int signal) {
      signal_ = signal;
      if (child_ != 0) kill(child_, forwards_ ? signal : SIGKILL);
    };
    action.sa_flags = SA_RESTART;
    for (const int signal : signals)
      sigaction(signal, &action, nullptr);
    // A report that nobody reads any more is an error of standard output.
    std::signal(SIGPIPE, SIG_IGN);
  }
  ~Interrupts() {
    restore();
    if (signal_ != 0 && !isForAgent_) raise(signal_);
  }
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  static void childIs(pid_t child) {
    child_ = child;
    if (signal_ != 0) kill(child, forwards_ ? signal_ : SIGKILL);
  }
  /// In the child, which is interrupted like any process.
  static void restore() {
    for (const int signal : signals)
      std::signal(signal, SIG_DFL);
    std::signal(SIGPIPE, SIG_DFL);
  }

 private:
  static constexpr std::array signals{SIGINT, SIGTERM, SIGHUP};
  static inline volatile pid_t child_ = 0;
  static inline volatile std::sig_atomic_t signal_ = 0;
  static inline volatile std::sig_atomic_t forwards_ = 0;
  const bool isForAgent_;
};

/// What a child leaves behind.
struct Remains {
  int status = 0;
  std::size_t begun = 0;  ///< how many steps
  std::string standardError;
};

Remains attend(pid_t child, int output, int error, int progress, bool echoesError) {
  Remains remains;
  std::string steps;
  std::array<pollfd, 3> ends{{{output, POLLIN, 0}, {error, POLLIN, 0}, {progress, POLLIN, 0}}};
  for (int open = 3; open > 0;) {
    if (poll(ends.data(), ends.size(), -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (pollfd& end : ends) {
      if (end.fd < 0 || end.revents == 0) continue;
      std::array<char, 65536> buffer;
      const ssize_t size = read(end.fd, buffer.data(), buffer.size());
      if (size < 0 && errno == EINTR) continue;
      if (size <= 0) {
        close(end.fd);
        end.fd = -1;
        --open;
        continue;
      }
      const std::string_view text(buffer.data(), static_cast<std::size_t>(size));
      if (end.fd == output) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        if (std::fflush(stdout) != 0) kill(child, SIGKILL);
      } else if (end.fd == error) {
        remains.standardError += text;
        if (echoesError) std::fwrite(text.data(), 1, text.size(), stderr);
      } else {
        steps += text;
      }
    }
  }
  while (waitpid(child, &remains.status, 0) < 0 && errno == EINTR)
    continue;
  remains.begun = steps.size() / sizeof(std::size_t);
  return remains;
}

std::string ending(int status) {
  if (WIFSIGNALED(status))
    return fmt::format("ended by signal {} ({})", WTERMSIG(status), strsignal(WTERMSIG(status)));
  return fmt::format("ended with status {}", WEXITSTATUS(status));
}

/// Why the child did not end as the scenario says; empty if it did. A clean failure has been
/// reported by the child.
std::string complaint(const Scenario& scenario, const Remains& remains) {
  const bool isClean = WIFEXITED(remains.status) && WEXITSTATUS(remains.status) <= statusUnusable;
  const std::size_t last = scenario.steps.size();
  const std::string where = remains.begun == 0 ? "before the first step"
                            : remains.begun > last
                                ? "in the closing questions"
                                : fmt::format("in step {} (line {})", remains.begun,
                                              scenario.steps[remains.begun - 1].line);
  if (!scenario.aborts)
    return isClean ? "" : fmt::format("the process {} {}", ending(remains.status), where);
  if (isClean && WEXITSTATUS(remains.status) != 0) return "";
  if (isClean)
    return fmt::format("the last step did not end the process; expected: {}", *scenario.aborts);
  if (!WIFSIGNALED(remains.status) || WTERMSIG(remains.status) != SIGABRT)
    return fmt::format("the process {} {}; expected an abort with: {}", ending(remains.status),
                       where, *scenario.aborts);
  if (remains.begun < last)
    return fmt::format("the process aborted {}, before the last one", where);
  if (remains.standardError.find(*scenario.aborts) == std::string::npos)
    return fmt::format("the process aborted with another text; expected: {}", *scenario.aborts);
  return "";
}

}  // namespace

Outcome runInChild(const Scenario& scenario, const PlayOptions& options, Report& report) {
  if (options.crashAt && scenario.aborts)
    throw InputError(
        fmt::format("{}: ends with an abort, so there is no crash to ask about", scenario.file));
  const Interrupts interrupts(options.stay);
  const PlayDirectory directory(options.keep, options.resume);
  writeToggles(scenario, directory / "toggles");
  report.fileBegins(scenario);
  std::fflush(stdout);
  std::fflush(stderr);
  Pipe output, error, progress;
  const pid_t player = getpid();
  const pid_t child = fork();
  if (child < 0) systemFailed("fork");
  if (child == 0) {
    Interrupts::restore();
    // A scenario does not outlive its player, which may have died already.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != player) _exit(statusFailed);
    dup2(output.writeEnd, STDOUT_FILENO);
    dup2(error.writeEnd, STDERR_FILENO);
    playHere(scenario, options, report, directory, progress.writeEnd);
  }
  for (const int end : {output.writeEnd, error.writeEnd, progress.writeEnd})
    close(end);
  Interrupts::childIs(child);
  // What a long life has to say is wanted at once.
  const bool echoes = !options.traceLevels.empty() || options.stay;
  const Remains remains = attend(child, output.readEnd, error.readEnd, progress.readEnd, echoes);
  const std::string reason = complaint(scenario, remains);
  const bool isExpectedAbort = scenario.aborts && WIFSIGNALED(remains.status) && reason.empty();
  const bool passed = isExpectedAbort || (reason.empty() && WIFEXITED(remains.status) &&
                                          WEXITSTATUS(remains.status) == 0);
  const bool isUnusable =
      WIFEXITED(remains.status) && WEXITSTATUS(remains.status) == statusUnusable;
  if (isUnusable || (!echoes && reason.empty() && !isExpectedAbort))
    std::fputs(remains.standardError.c_str(), stderr);
  report.fileEnds(scenario, passed, reason, echoes ? std::string() : remains.standardError);
  return passed ? Outcome::passed : isUnusable ? Outcome::unusable : Outcome::failed;
}

}  // namespace Host
