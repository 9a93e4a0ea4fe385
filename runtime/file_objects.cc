#include "runtime/file_objects.h"

#include <boost/locale/encoding_utf.hpp>
#include <map>
#include <mutex>
#include <utility>

#include "runtime/fork.h"

namespace tb::runtime {
namespace {

constinit std::mutex objectsLock;
const UsableAfterFork<objectsLock> objectsLockStaysUsable;
std::uint64_t objectCount = 0;

// Never destroyed, since a process may end while threads of it open files.
auto& objects = *new std::map<std::u16string, NamedFileObject>;

}  // namespace

const char* FileObjectFailure::what() const noexcept { return "the file object has failed"; }

std::u16string addFileObject(std::shared_ptr<FileObject> object, const std::string& label) {
  const std::lock_guard guard(objectsLock);
  const std::string name = "tagbridge-object:" + std::to_string(++objectCount) + ":" + label;
  std::u16string key = boost::locale::conv::utf_to_utf<char16_t>(name);
  objects.emplace(key, NamedFileObject{std::move(object), label});
  return key;
}

void removeFileObject(const std::u16string& name) {
  NamedFileObject removed;  // released after the lock, since an object's end may take others
  const std::lock_guard guard(objectsLock);
  if (auto node = objects.extract(name); !node.empty()) removed = std::move(node.mapped());
}

std::optional<NamedFileObject> findFileObject(const std::u16string& name) {
  const std::lock_guard guard(objectsLock);
  const auto found = objects.find(name);
  if (found == objects.end()) return std::nullopt;
  return found->second;
}

}  // namespace tb::runtime
