#include "scheduler/state_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "scheduler/settings_schema.h"
#include "scheduler/state_files.h"

namespace dev_scheduler {

bool StateStore::makeDirectory(const std::string& directory, platform::ErrorRef* error) {
  std::error_code failure;
  std::filesystem::create_directories(directory, failure);
  if (failure && error) *error = fileError("cannot make the directory", directory, failure.value());
  return !failure;
}

std::optional<platform::Dictionary> StateStore::readDictionary(const char* file, bool* missing,
                                                               platform::ErrorRef* error) const {
  // Looked at before it is read: should it change in between, the next use
  // reads it again.
  struct stat identity {};
  const bool known = ::stat(path(file).c_str(), &identity) == 0;
  if (const auto it = read_.find(file);
      known && it != read_.end() && sameFileUnchanged(it->second.identity, identity)) {
    if (missing) *missing = false;
    return it->second.contents;
  }
  read_.erase(file);
  const platform::Value stored = readStateFile(path(file), missing, error);
  if (!stored) return std::nullopt;
  const platform::Dictionary* dictionary = stored.asDictionary();
  if (!dictionary) {
    if (error) *error = fileError("no dictionary in", path(file), EINVAL);
    return std::nullopt;
  }
  if (known) read_.insert_or_assign(file, ReadFile{identity, *dictionary});
  return *dictionary;
}

std::optional<platform::Dictionary> StateStore::settings(platform::ErrorRef* error) const {
  bool missing = false;
  std::optional<platform::Dictionary> stored = readDictionary(kSettingsFile, &missing, error);
  if (!missing) return stored;
  platform::Dictionary defaults = defaultSettings();
  if (!setSettings(defaults, error)) return std::nullopt;
  return defaults;
}

bool StateStore::setSettings(const platform::Dictionary& settings, platform::ErrorRef* error) const {
  return writeStateFile(path(kSettingsFile), platform::Value::dictionary(settings), error);
}

bool StateStore::setSetting(const std::string& key, platform::Value value, platform::ErrorRef* error) const {
  std::optional<platform::Dictionary> stored = settings(error);
  if (!stored) return false;
  stored->set(key, std::move(value));
  return setSettings(*stored, error);
}

std::optional<platform::Dictionary> StateStore::activity(platform::ErrorRef* error) const {
  bool missing = false;
  std::optional<platform::Dictionary> stored = readDictionary(kActivityFile, &missing, error);
  return missing ? platform::Dictionary() : stored;
}

bool StateStore::setActivity(const platform::Dictionary& activity, platform::ErrorRef* error) const {
  return writeStateFile(path(kActivityFile), platform::Value::dictionary(activity), error);
}

platform::Value StateStore::availableUpdate(platform::ErrorRef* error) const {
  bool missing = false;
  std::optional<platform::Dictionary> update = readDictionary(kUpdateFile, &missing, error);
  return update ? platform::Value::dictionary(std::move(*update)) : platform::Value();
}

bool StateStore::removeAvailableUpdate(platform::ErrorRef* error) const {
  const std::string file = path(kUpdateFile);
  if (::unlink(file.c_str()) != 0 && errno != ENOENT) {
    if (error) *error = fileError("cannot remove", file, errno);
    return false;
  }
  return true;
}

}  // namespace dev_scheduler
