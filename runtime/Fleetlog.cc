#include "runtime/Fleetlog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "runtime/Assert.h"
#include "runtime/Clock.h"
#include "runtime/shm/PageGuard.h"

namespace Fleetlog {
namespace {

constexpr std::uint64_t fileMagic = 0x31474e4952544c46;  // "FLTRING1"
constexpr std::size_t moduleCapacity = 256;
constexpr std::uint16_t padding = 0xffff;  // module of the filler at the end of a ring
constexpr std::size_t lineBytes = 64;

// Positions count bytes since the start and never wrap; a record's place is its position modulo the
// capacity. Everything in [tail, head) is whole at any instant: the tail moves before bytes are
// overwritten, the head after they are written.
struct RingHeader {
  std::uint64_t offset;
  std::uint64_t capacity;
  std::uint64_t head;
  std::uint64_t tail;
};

struct FileHeader {
  std::uint64_t magic;
  std::uint64_t fileBytes;
  std::uint32_t processId;
  std::uint32_t moduleBytes;
  std::uint32_t noteBytes;
  std::uint32_t closed;
  std::array<RingHeader, levelCount> rings;
};

// A filler has the first two words only, so that any rest of 8 bytes can hold one.
struct RecordHeader {
  std::uint32_t bytes;  // with this header, a multiple of 8
  std::uint16_t textBytes;
  std::uint16_t module;
  std::uint64_t sequence;
  double time;
};
constexpr std::size_t fillerBytes = 8;
static_assert(sizeof(RecordHeader) == 24 && offsetof(RecordHeader, sequence) == fillerBytes);
// A record may need a filler of nearly its own size before it.
static_assert(2 * maxRecordBytes <= sizeUnit);

constexpr std::uint64_t aligned(std::uint64_t bytes, std::uint64_t unit) {
  return (bytes + unit - 1) / unit * unit;
}

struct Ring {
  RingHeader* shared = nullptr;
  char* data = nullptr;
  std::uint64_t capacity = 0;
  std::uint64_t head = 0;
  std::uint64_t tail = 0;
  std::uint64_t headPlace = 0;
  std::uint64_t tailPlace = 0;

  void makeRoom(std::uint64_t bytes) {
    if (head + bytes - tail <= capacity) return;
    do {
      std::uint32_t oldest = 0;
      std::memcpy(&oldest, data + tailPlace, sizeof oldest);
      if (!isLength(oldest)) {
        // Somebody has written into the file, or cut it short: what it held is lost.
        tail = head;
        tailPlace = headPlace;
        break;
      }
      tail += oldest;
      tailPlace += oldest;
      if (tailPlace == capacity) tailPlace = 0;
    } while (head + bytes - tail > capacity);
    std::atomic_ref(shared->tail).store(tail, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
  }

  [[nodiscard]] bool isLength(std::uint64_t bytes) const {
    return bytes >= 8 && bytes % 8 == 0 && bytes <= capacity - tailPlace && bytes <= head - tail;
  }

  void fillUp(std::uint64_t bytes) {
    RecordHeader filler{static_cast<std::uint32_t>(bytes), 0, padding, 0, 0};
    std::memcpy(data + headPlace, &filler, fillerBytes);
    head += bytes;
    headPlace = 0;
  }
};

struct Recorder {
  char* base = nullptr;
  std::uint64_t fileBytes = 0;
  std::filesystem::path file;
  char* moduleTable = nullptr;
  std::size_t moduleBytes = 0;
  std::size_t textBytes = 0;
  std::uint64_t sequence = 0;
  std::array<Ring, levelCount> rings{};
  /// Whoever cuts the file short loses what it held, and nothing else.
  std::unique_ptr<VeskSharedMem::PageGuard> guard;
};

constinit Recorder* recorder = nullptr;

std::vector<std::string>& moduleNames() {
  static auto& names = *new std::vector<std::string>;
  return names;
}

std::filesystem::path& defaultDirectory() {
  static auto& dir = *new std::filesystem::path;
  return dir;
}

void publishModule(std::size_t module) {
  const auto& name = moduleNames()[module];
  std::memcpy(recorder->moduleTable + module * recorder->moduleBytes, name.data(),
              std::min(name.size(), recorder->moduleBytes));
}

std::filesystem::path pathOf(std::string name) {
  if (auto at = name.find("%d"); at != std::string::npos) {
    name.replace(at, 2, std::to_string(getpid()));
  }
  const char* dir = std::getenv("FLEETLOGDIR");
  return (dir && *dir ? std::filesystem::path(dir) : defaultDirectory()) / name;
}

std::string reason() {
  return std::error_code(errno, std::generic_category()).message();
}

class Descriptor {
 public:
  Descriptor(const std::filesystem::path& path, int flags)
      : number_(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  [[nodiscard]] int number() const { return number_; }

 private:
  int number_;
};

/// False if others could have laid something in the way there.
bool isOwnDirectory(const std::filesystem::path& directory) {
  struct stat status {};
  const std::string name = directory.empty() ? "." : directory.string();
  if (::stat(name.c_str(), &status) != 0) return false;
  if (status.st_uid == ::geteuid() || status.st_uid == 0) return true;
  errno = EPERM;
  return false;
}

// A new file, and nothing that a link leads to: what a killed process left under the name loses it.
// Space is reserved at once: a file system that fills up later must not end the process.
char* mapNewFile(const std::filesystem::path& path, std::uint64_t bytes) {
  if (!isOwnDirectory(path.parent_path())) return nullptr;
  ::unlink(path.c_str());
  Descriptor file(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW);
  if (file.number() < 0) return nullptr;
  errno = ::posix_fallocate(file.number(), 0, static_cast<off_t>(bytes));
  if (errno != 0) return nullptr;
  void* base = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.number(), 0);
  return base == MAP_FAILED ? nullptr : static_cast<char*>(base);
}

}  // namespace

TraceHandle::TraceHandle(std::string_view module) {
  auto& names = moduleNames();
  auto found = std::ranges::find(names, module);
  if (found == names.end()) {
    bool last = names.size() + 1 >= moduleCapacity;
    if (names.size() < moduleCapacity) names.emplace_back(last ? "others" : module);
    found = names.end() - 1;
    if (recorder) publishModule(names.size() - 1);
  }
  module_ = static_cast<std::uint16_t>(found - names.begin());
}

void directoryIs(const std::filesystem::path& dir) {
  defaultDirectory() = dir;
}

bool initialize(const std::string& fileName, const Sizes& sizes, const char* note,
                std::size_t noteBytes, std::size_t moduleBytes, std::uint32_t quietLevels, bool on,
                std::size_t recordBytes) {
  Ombra::assertThat(recordBytes >= minRecordBytes && recordBytes <= maxRecordBytes,
                    "minRecordBytes <= recordBytes <= maxRecordBytes");
  shutdown();
  if (!note) noteBytes = 0;

  FileHeader header{};
  header.processId = static_cast<std::uint32_t>(getpid());
  header.moduleBytes = static_cast<std::uint32_t>(moduleBytes);
  header.noteBytes = static_cast<std::uint32_t>(noteBytes);
  const std::uint64_t modulesAt = sizeof header + noteBytes;
  std::uint64_t end = aligned(modulesAt + moduleCapacity * moduleBytes, lineBytes);
  std::uint32_t levels = 0;
  for (std::size_t level = 0; level < levelCount; ++level) {
    header.rings[level] = {end, std::uint64_t{sizes[level]} * sizeUnit, 0, 0};
    end += header.rings[level].capacity;
    if (sizes[level] != 0) levels |= 1U << level;
  }
  header.magic = fileMagic;
  header.fileBytes = end;

  auto path = pathOf(fileName);
  auto unfinished = path;
  unfinished += ".new";
  char* base = mapNewFile(unfinished, end);
  if (!base) {
    fmt::print(stderr, "trace ring {}: {}\n", path.string(), reason());
    ::unlink(unfinished.c_str());
    return false;
  }
  std::memcpy(base, &header, sizeof header);
  if (noteBytes != 0) std::memcpy(base + sizeof header, note, noteBytes);

  recorder = new Recorder{base, end, path, base + modulesAt, moduleBytes};
  recorder->guard =
      std::make_unique<VeskSharedMem::PageGuard>(reinterpret_cast<std::byte*>(base), end);
  recorder->textBytes = recordBytes / 8 * 8 - sizeof(RecordHeader);
  auto* shared = reinterpret_cast<FileHeader*>(base);
  for (std::size_t level = 0; level < levelCount; ++level) {
    auto& slot = shared->rings[level];
    recorder->rings[level] = {&slot, base + slot.offset, slot.capacity};
  }
  for (std::size_t module = 0; module < moduleNames().size(); ++module)
    publishModule(module);

  if (::rename(unfinished.c_str(), path.c_str()) != 0) {
    fmt::print(stderr, "trace ring {}: {}\n", path.string(), reason());
    ::unlink(unfinished.c_str());
    shutdown();
    return false;
  }
  Detail::activeLevels = on ? levels & ~quietLevels : 0;
  return true;
}

void shutdown() {
  Detail::activeLevels = 0;
  if (!recorder) return;
  auto& header = *reinterpret_cast<FileHeader*>(recorder->base);
  // After a fork this may be the parent's file: only its own process closes it.
  if (header.processId == static_cast<std::uint32_t>(getpid())) header.closed = 1;
  recorder->guard.reset();
  ::munmap(recorder->base, recorder->fileBytes);
  delete recorder;
  recorder = nullptr;
}

const std::filesystem::path& currentFile() {
  static const std::filesystem::path none;
  return recorder ? recorder->file : none;
}

void Detail::write(std::uint16_t module, std::size_t level, std::string_view text) {
  auto& ring = recorder->rings[level];
  const auto textBytes = std::min(text.size(), recorder->textBytes);
  const auto bytes = aligned(sizeof(RecordHeader) + textBytes, 8);
  const auto rest = ring.capacity - ring.headPlace;
  const auto filler = bytes > rest ? rest : 0;
  ring.makeRoom(filler + bytes);
  if (filler != 0) ring.fillUp(filler);
  const RecordHeader header{static_cast<std::uint32_t>(bytes),
                            static_cast<std::uint16_t>(textBytes), module, ++recorder->sequence,
                            Vesk::System::coarseTime()};
  char* place = ring.data + ring.headPlace;
  std::memcpy(place, &header, sizeof header);
  std::memcpy(place + sizeof header, text.data(), textBytes);
  ring.head += bytes;
  ring.headPlace += bytes;
  if (ring.headPlace == ring.capacity) ring.headPlace = 0;
  std::atomic_ref(ring.shared->head).store(ring.head, std::memory_order_release);
}

namespace {

class Reader {
 public:
  // O_NONBLOCK keeps a pipe that happens to lie there from blocking us.
  explicit Reader(const std::filesystem::path& path)
      : path_(path), file_(path, O_RDONLY | O_NONBLOCK) {
    if (file_.number() < 0) fail(reason());
    struct stat status {};
    if (::fstat(file_.number(), &status) != 0) fail(reason());
    if (!S_ISREG(status.st_mode)) fail("not a regular file");
    fileBytes_ = static_cast<std::uint64_t>(status.st_size);
  }

  RingFile read() {
    FileHeader header = readHeader();
    check(header);
    std::vector<char> content(header.fileBytes);
    readAt(0, content.data(), content.size());
    // A running writer may have overtaken the copy: what it let go meanwhile does not count.
    FileHeader after = readHeader();

    RingFile result;
    result.processId = header.processId;
    result.closed = after.closed != 0;
    result.note.assign(content.data() + sizeof header, header.noteBytes);
    const char* modules = content.data() + sizeof header + header.noteBytes;
    for (std::size_t level = 0; level < levelCount; ++level) {
      const auto& ring = header.rings[level];
      const auto first = std::max(ring.tail, after.rings[level].tail);
      for (auto position = first; position < ring.head;) {
        const auto place = position % ring.capacity;
        auto record = recordAt(content.data() + ring.offset + place, ring.capacity - place);
        if (record.bytes > ring.head - position) fail("damaged record");
        position += record.bytes;
        if (record.module == padding) continue;
        const char* name = modules + record.module * header.moduleBytes;
        const char* text = content.data() + ring.offset + place + sizeof record;
        result.records.push_back({record.sequence, record.time,
                                  std::string(name, ::strnlen(name, header.moduleBytes)), level,
                                  std::string(text, record.textBytes)});
      }
    }
    std::ranges::sort(result.records, {}, &Record::sequence);
    return result;
  }

 private:
  [[noreturn]] void fail(std::string_view why) const {
    throw FileError(fmt::format("trace ring {}: {}", path_.string(), why));
  }

  void readAt(std::uint64_t offset, char* to, std::size_t bytes) const {
    while (bytes > 0) {
      auto got = ::pread(file_.number(), to, bytes, static_cast<off_t>(offset));
      if (got < 0) fail(reason());
      if (got == 0) fail("the file is cut short");
      to += got;
      offset += static_cast<std::uint64_t>(got);
      bytes -= static_cast<std::size_t>(got);
    }
  }

  [[nodiscard]] FileHeader readHeader() const {
    FileHeader header{};
    readAt(0, reinterpret_cast<char*>(&header.magic), sizeof header.magic);
    if (header.magic != fileMagic) fail("not a trace ring, or of another layout");
    readAt(0, reinterpret_cast<char*>(&header), sizeof header);
    return header;
  }

  void check(const FileHeader& header) const {
    if (header.fileBytes > fileBytes_) {
      fail(fmt::format("the file is cut short: {} of {} bytes", fileBytes_, header.fileBytes));
    }
    auto end =
        sizeof header + header.noteBytes + moduleCapacity * std::uint64_t{header.moduleBytes};
    for (const auto& ring : header.rings) {
      if (ring.offset < end || ring.offset > header.fileBytes ||
          ring.capacity > header.fileBytes - ring.offset || ring.capacity % sizeUnit != 0 ||
          ring.tail > ring.head || ring.head - ring.tail > ring.capacity) {
        fail("damaged head");
      }
      end = ring.offset + ring.capacity;
    }
  }

  RecordHeader recordAt(const char* place, std::uint64_t room) const {
    if (room < fillerBytes) fail("damaged record");
    RecordHeader record{};
    std::memcpy(&record, place, fillerBytes);
    if (record.bytes > room || record.bytes % 8 != 0 || record.bytes == 0) fail("damaged record");
    if (record.module == padding) return record;
    if (record.bytes < sizeof record + record.textBytes || record.module >= moduleCapacity) {
      fail("damaged record");
    }
    std::memcpy(&record, place, sizeof record);
    return record;
  }

  const std::filesystem::path& path_;
  Descriptor file_;
  std::uint64_t fileBytes_ = 0;
};

}  // namespace

RingFile readRing(const std::filesystem::path& path) {
  return Reader(path).read();
}

}  // namespace Fleetlog
