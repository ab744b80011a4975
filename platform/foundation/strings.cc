#include "platform/foundation/strings.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <vector>

#include "platform/foundation/user_ids.h"
#include "platform/plist/codec_support.h"

namespace platform {
namespace {

// The platform's white space and newline set: the ASCII controls TAB to CR,
// NEL, and every space separator, line separator and paragraph separator.
bool isWhiteSpace(char32_t c) {
  return c == U' ' || (c >= U'\t' && c <= U'\r') || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F ||
         c == 0x205F || c == 0x3000;
}

// The home directory of a password-database entry, or nullopt when there is no
// entry or it names no directory. getpw*_r with a buffer that grows on ERANGE,
// since entries have no fixed size limit.
template <typename Lookup>
std::optional<std::string> homeFromPasswordDatabase(Lookup lookup) {
  constexpr std::size_t kLargestBuffer = 1 << 20;
  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 1024);
  for (;;) {
    passwd entry{};
    passwd* found = nullptr;
    const int status = lookup(&entry, buffer.data(), buffer.size(), &found);
    if (status == ERANGE && buffer.size() < kLargestBuffer) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (status != 0 || !found || !found->pw_dir || !*found->pw_dir) return std::nullopt;
    return std::string(found->pw_dir);
  }
}

std::optional<std::string> homeOfUser(const std::string& name) {
  return homeFromPasswordDatabase([&](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return getpwnam_r(name.c_str(), entry, buffer, size, found);
  });
}

// "~" or "~user" at the start of `path` replaced by that user's home; the path
// unchanged when it does not start with a tilde or the user is unknown.
std::string expandingTildeInPath(std::string_view path) {
  if (path.empty() || path.front() != '~') return std::string(path);
  const std::size_t slash = path.find('/');
  const std::string_view user = path.substr(1, slash == std::string_view::npos ? path.npos : slash - 1);
  const std::string_view rest = slash == std::string_view::npos ? std::string_view() : path.substr(slash);
  std::optional<std::string> home = user.empty() ? homeDirectory() : homeOfUser(std::string(user));
  if (!home) return std::string(path);
  return *home + std::string(rest);
}

}  // namespace

bool isValidUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    char32_t cp;
    const std::size_t length = codec::decodeUtf8(text, i, cp);
    if (length == 0) return false;
    i += length;
  }
  return true;
}

bool stringBoolValue(std::string_view utf8) {
  if (!isValidUtf8(utf8)) return false;
  std::size_t i = 0;
  for (char32_t c; i < utf8.size();) {
    const std::size_t length = codec::decodeUtf8(utf8, i, c);
    if (!isWhiteSpace(c)) break;
    i += length;
  }
  if (i < utf8.size() && (utf8[i] == '+' || utf8[i] == '-')) ++i;
  while (i < utf8.size() && utf8[i] == '0') ++i;
  if (i == utf8.size()) return false;
  const char first = utf8[i];
  return first == 'Y' || first == 'y' || first == 'T' || first == 't' || (first >= '1' && first <= '9');
}

std::string stringByStandardizingPath(std::string_view path) {
  const std::string expanded = expandingTildeInPath(path);
  if (expanded.empty()) return expanded;
  const bool absolute = expanded.front() == '/';
  std::vector<std::string_view> kept;
  std::string_view rest = expanded;
  while (!rest.empty()) {
    const std::size_t slash = rest.find('/');
    const std::string_view component = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
    if (component.empty() || component == ".") continue;
    // Lexically, and only where there is a known parent: in an absolute path;
    // "/.." is "/". A relative path keeps its ".." since its base is unknown.
    if (component == ".." && absolute) {
      if (!kept.empty()) kept.pop_back();
      continue;
    }
    kept.push_back(component);
  }
  std::string result;
  for (std::string_view component : kept) {
    if (absolute || !result.empty()) result += '/';
    result += component;
  }
  if (result.empty()) return absolute ? "/" : ".";
  return result;
}

std::string homeDirectory() {
  const char* home = std::getenv("HOME");
  if (home && *home) return home;
  const uid_t user = UserIds::current().effectiveUserId();
  return homeFromPasswordDatabase([&](passwd* entry, char* buffer, std::size_t size, passwd** found) {
           return getpwuid_r(user, entry, buffer, size, found);
         }).value_or("/");
}

}  // namespace platform
