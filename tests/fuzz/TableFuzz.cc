// A shared table's file with any bytes in it: read, followed, taken over by a writer that goes on
// to write, and damaged under that writer's hands. Whatever opens must hold together afterwards.
#include <array>
#include <map>

#include <fuzzer/FuzzedDataProvider.h>

#include "runtime/shm/TableReader.h"
#include "runtime/shm/TableWriter.h"
#include "tests/fuzz/FuzzFile.h"

namespace {

using namespace VeskSharedMem;
using Fuzz::finding;

// Few rows, so that keys meet; sizes that are no multiples of a word.
constexpr TableShape shape{10, 30, 24, 0x1122334455667788};
constexpr unsigned keyCount = 40;

using Key = std::array<char, shape.keySize>;
using Value = std::array<char, shape.valueSize>;
using Rows = std::map<std::string, std::pair<std::string, bool>>;  // key: value, corrupt

Key keyOf(unsigned id) {
  Key key;
  key.fill(static_cast<char>(id * 7 + 1));
  return key;
}

Value valueOf(unsigned version) {
  Value value;
  value.fill(static_cast<char>(version));
  return value;
}

std::string text(const void* bytes, std::size_t size) {
  return {static_cast<const char*>(bytes), size};
}

const Fuzz::FuzzFile& file() {
  static const Fuzz::FuzzFile theFile("table");
  return theFile;
}

// What a writer has left that lived through a bit of everything.
const std::string& soundBytes() {
  static const std::string bytes = [] {
    {
      const auto writer = TableWriter::open(file().path(), shape);
      for (unsigned id = 0; id < 18; ++id)
        writer->put(keyOf(id).data(), valueOf(id).data());
      for (unsigned id = 0; id < 18; id += 3)
        writer->erase(keyOf(id).data());
      for (unsigned id = 1; id < 6; ++id)
        writer->put(keyOf(id).data(), valueOf(100 + id).data());
      writer->markCorrupt(keyOf(7).data());
    }
    return file().content();
  }();
  return bytes;
}

void damageSection(std::string& bytes, FuzzedDataProvider& input) {
  const TableLayout layout = TableLayout::of("", shape);
  const auto what = input.ConsumeIntegralInRange(0, 7);
  const auto someRow = [&] {
    return layout.rowsOffset +
           std::uint64_t{input.ConsumeIntegralInRange(0U, shape.capacity - 1)} * layout.rowStride;
  };
  if (what == 4) {  // the words of one row
    const auto at = someRow();
    return Fuzz::damage(bytes, at, at + 8, input);
  }
  if (what == 5) {  // one row's bytes become another's
    const auto from = someRow();
    std::memmove(bytes.data() + someRow(), bytes.data() + from, layout.rowStride);
    return;
  }
  const std::pair<std::uint64_t, std::uint64_t> sections[]{
      {0, sizeof(TableHeader)},
      {128, sizeof(TableHeader)},
      {layout.undoOffset, layout.rowsOffset},
      {layout.rowsOffset, layout.indexOffset},
      {},
      {},
      {layout.indexOffset, layout.journalOffset},
      {layout.journalOffset, layout.fileSize}};
  Fuzz::damage(bytes, sections[what].first, sections[what].second, input);
}

void readAll(TableReader& reader, TableCursor cursor) {
  Value value;
  Rows rows;
  const auto note = [&rows, &reader](auto, const std::byte* key, const std::byte* bytes, bool) {
    const auto& own = reader.shape();
    rows[text(key, own.keySize)] = {text(bytes, own.valueSize), false};
  };
  static_cast<void>(reader.size());
  static_cast<void>(reader.isReplaced());
  reader.forEach(note);
  reader.forEach(note, TableReader::Check::checksum);
  if (reader.shape() == shape) {
    for (unsigned id = 0; id < keyCount; ++id)
      static_cast<void>(reader.find(keyOf(id).data(), value.data()));
  }
  std::string buffer(reader.shape().valueSize + 1, ' ');
  for (const auto& [key, row] : rows)
    static_cast<void>(reader.find(key.data(), buffer.data()));
  for (int round = 0; round < 2; ++round) {
    static_cast<void>(reader.changesSince(
        cursor, [&](std::uint32_t number, RowState, const std::byte* key, const std::byte*) {
          if (number >= reader.shape().capacity) finding("a row number beyond the table");
          rows[text(key, reader.shape().keySize)] = {};
        }));
  }
  static_cast<void>(reader.waitForChange(cursor, std::chrono::milliseconds(0)));
}

Rows rowsOf(const TableWriter& writer) {
  Rows rows;
  writer.forEach([&rows](const std::byte* key, const std::byte* value, bool corrupt) {
    const bool isNew =
        rows.try_emplace(text(key, shape.keySize), text(value, shape.valueSize), corrupt).second;
    if (!isNew) finding("a key twice");
  });
  return rows;
}

// What the writer holds, by scan and by key, is what a reader sees.
void expectAgreement(const TableWriter& writer) {
  const Rows rows = rowsOf(writer);
  if (writer.size() != rows.size()) finding("size and rows differ");
  const auto reader = TableReader::open(file().path(), shape);
  Rows read;
  const auto skipped = reader->forEach(
      [&read](auto, const std::byte* key, const std::byte* value, bool corrupt) {
        read[text(key, shape.keySize)] = {text(value, shape.valueSize), corrupt};
      },
      TableReader::Check::checksum);
  if (skipped != 0) finding("a row is busy without a writer at work");
  if (read != rows || reader->size() != rows.size()) finding("a reader sees other rows");
  for (const auto& [key, row] : rows) {
    const RowState expected = row.second ? RowState::corrupt : RowState::live;
    Value value;
    if (writer.find(key.data(), value.data()) != expected) finding("the writer misses a row");
    if (reader->find(key.data(), value.data()) != expected) finding("a reader misses a row");
  }
}

void put(TableWriter& writer, unsigned id, unsigned version) {
  const Value value = valueOf(version);
  Value held{};
  const bool isFull = writer.put(keyOf(id).data(), value.data()) == TableWriter::Put::full;
  if (isFull && writer.size() < shape.capacity) finding("full too early");
  if (!isFull && (writer.find(keyOf(id).data(), held.data()) != RowState::live || held != value))
    finding("written and not");
}

void erase(TableWriter& writer, unsigned id) {
  Value value;
  const bool wasThere = writer.find(keyOf(id).data(), value.data()) != RowState::missing;
  if (writer.erase(keyOf(id).data()) != wasThere) finding("erased and not");
}

void write(TableWriter& writer, FuzzedDataProvider& input) {
  expectAgreement(writer);
  const auto steps = input.ConsumeIntegralInRange(0, 60);
  for (int step = 0; step < steps; ++step) {
    const auto id = input.ConsumeIntegralInRange(0U, keyCount - 1);
    const auto what = input.ConsumeIntegralInRange(0, 9);
    if (what == 0) {
      for (unsigned each = 0; each < keyCount; ++each)
        erase(writer, each);
    } else if (what == 1) {
      writer.markCorrupt(keyOf(id).data());
    } else if (what <= 4) {
      erase(writer, id);
    } else {
      put(writer, id, input.ConsumeIntegral<std::uint8_t>());
    }
  }
  writer.wakeReaders();
  expectAgreement(writer);
}

// Another process scribbles into the file of a live writer. What the rows say afterwards is
// anybody's guess, but the writer and the readers go on.
void writeUnderDamage(TableWriter& writer, FuzzedDataProvider& input) {
  Value value;
  const auto reader = TableReader::open(file().path(), shape);
  const TableCursor cursor = reader->cursor();
  while (input.remaining_bytes() > 0) {
    const Key key = keyOf(input.ConsumeIntegralInRange(0U, keyCount - 1));
    const auto what = input.ConsumeIntegralInRange(0, 5);
    if (what == 0) {
      writer.put(key.data(), valueOf(key[0]).data());
    } else if (what == 1) {
      writer.erase(key.data());
    } else if (what == 2) {
      static_cast<void>(writer.find(key.data(), value.data()));
      writer.forEach([](auto, auto, bool) {});
    } else if (what == 3) {
      writer.markCorrupt(key.data());
    } else {
      std::string bytes = file().content();
      damageSection(bytes, input);
      std::fstream(file().path(), std::ios::binary | std::ios::in | std::ios::out) << bytes;
    }
  }
  readAll(*reader, cursor);
}

template <class Function>
void attempt(Function f) {
  Fuzz::attempt<TableError>(file(), f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string& sound = soundBytes();
  FuzzedDataProvider input(data, size);
  const bool isRaw = input.ConsumeIntegralInRange(0, 15) == 0;
  std::string bytes = isRaw ? input.ConsumeRandomLengthString() : sound;
  if (!isRaw) {
    for (int left = input.ConsumeIntegralInRange(0, 8); left > 0; --left)
      damageSection(bytes, input);
    if (input.ConsumeIntegralInRange(0, 31) == 0)
      bytes.resize(input.ConsumeIntegralInRange(std::size_t{0}, bytes.size() * 2));
  }
  file().contentIs(bytes);
  const TableCursor cursor{input.ConsumeIntegral<std::uint64_t>(),
                           input.ConsumeIntegral<std::uint64_t>()};
  attempt([&] {
    const auto reader = TableReader::openAny(file().path());
    readAll(*reader, cursor);
    readAll(*reader, reader->cursor());
  });
  attempt([&] { readAll(*TableReader::open(file().path(), shape), cursor); });
  attempt([&] {
    const auto writer = TableWriter::open(file().path(), shape);
    write(*writer, input);
    writeUnderDamage(*writer, input);
  });
  // The next writer cannot be refused by what a live one has gone through.
  attempt([&] {
    const auto writer = TableWriter::open(file().path(), shape);
    expectAgreement(*writer);
  });
  return 0;
}
