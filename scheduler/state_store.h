// The scheduler's state, kept in the files of its state directory and looked
// at afresh at every use, so that a test may change a file while the scheduler
// serves. A file found unchanged since it was last read (the same file, the
// same size and times) is not read again. Not synchronized: the caller
// serializes the requests that use it.
#pragma once

#include <sys/stat.h>

#include <map>
#include <optional>
#include <string>

#include "platform/plist/value.h"

namespace dev_scheduler {

class StateStore {
 public:
  // The state in `directory`, which must exist.
  explicit StateStore(std::string directory) : directory_(std::move(directory)) {}

  // Makes `directory` and its parents when missing. False with an error.
  static bool makeDirectory(const std::string& directory, platform::ErrorRef* error);

  const std::string& directory() const { return directory_; }
  // The path of `file` in the state directory.
  std::string path(const char* file) const { return directory_ + "/" + file; }

  // The stored settings, as they are; the defaults, written first, when there
  // are none. Nullopt with an error when the file cannot be read or written, or
  // holds no dictionary.
  std::optional<platform::Dictionary> settings(platform::ErrorRef* error) const;
  // Replaces the settings. False with an error when they cannot be written.
  bool setSettings(const platform::Dictionary& settings, platform::ErrorRef* error) const;
  // Sets one entry of the stored settings. False with settings()'s or setSettings()'s error.
  bool setSetting(const std::string& key, platform::Value value, platform::ErrorRef* error) const;

  // The activity record; empty when there is none. Nullopt with an error when
  // the file cannot be read or holds no dictionary.
  std::optional<platform::Dictionary> activity(platform::ErrorRef* error) const;
  // Replaces the activity record. False with an error.
  bool setActivity(const platform::Dictionary& activity, platform::ErrorRef* error) const;

  // The update on offer, a dictionary; an absent value when none is offered,
  // or, with an error, when the file cannot be read or holds no dictionary.
  platform::Value availableUpdate(platform::ErrorRef* error) const;
  // Withdraws the update on offer (it was installed). False with an error.
  bool removeAvailableUpdate(platform::ErrorRef* error) const;

 private:
  // The dictionary in `file`. Nullopt when there is no file (with *missing
  // set) or, with an error, when it cannot be read or holds something else.
  std::optional<platform::Dictionary> readDictionary(const char* file, bool* missing, platform::ErrorRef* error) const;

  struct ReadFile {
    struct stat identity;
    platform::Dictionary contents;
  };

  std::string directory_;
  mutable std::map<std::string, ReadFile, std::less<>> read_;  // by file name
};

}  // namespace dev_scheduler
