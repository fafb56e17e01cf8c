#include <fmt/format.h>

#include "host/Commands.h"
#include "host/InputError.h"
#include "host/SharedAddresses.h"
#include "host/play/Content.h"
#include "host/play/World.h"
#include "host/play/YamlFile.h"
#include "runtime/SharedMem.h"

namespace Host {

int writeCommand(const std::string& address, const std::string& value,
                 const std::string& directory) {
  const Address parsed = sharedAddresses({address}).front();
  if (value.find_first_not_of(" \t\r\n") == std::string::npos)
    throw InputError(fmt::format("{}: the patch is empty; null deletes", address));
  const YamlFile text(address, value);
  const Content content = ContentReader(text, Use::write).at(parsed, text.root());
  VeskSharedMem::EntityManager::directoryIs(tablesDirectory(directory));
  for (const Failure& failure : World(0).write(parsed, content))
    throw InputError(fmt::format("{}: {}", failure.address, failure.found));
  VeskSharedMem::EntityManager::getEntityManager()->wakeReaders();
  return 0;
}

}  // namespace Host
