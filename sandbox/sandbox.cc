#include "sandbox/sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace qhv_sandbox {
namespace {

// Where the new root is put together; an empty directory in the sandbox.
constexpr const char* kStaging = "/mnt";

// Top-level directories that start as empty tmpfs mounts in every sandbox;
// the staging directory itself is left empty.
constexpr std::array<std::string_view, 4> kFreshDirectories = {"Library", "run", "root", "home"};

bool isFresh(std::string_view name) {
  for (std::string_view fresh : kFreshDirectories) {
    if (fresh == name) return true;
  }
  return name == std::string_view(kStaging).substr(1);
}

std::string failure(const std::string& step) { return step + ": " + std::strerror(errno); }

// Copies one entry of the real root into the staging root: symbolic links as
// links, directories and files bound in with everything mounted below them.
bool mirrorRootEntry(const std::string& name, std::string* whyNot) {
  const std::string real = "/" + name;
  const std::string copy = std::string(kStaging) + "/" + name;
  struct stat st {};
  if (::lstat(real.c_str(), &st) != 0) return true;  // gone meanwhile
  if (S_ISLNK(st.st_mode)) {
    std::vector<char> target(4096);
    const ssize_t length = ::readlink(real.c_str(), target.data(), target.size() - 1);
    if (length < 0 || ::symlink(std::string(target.data(), static_cast<std::size_t>(length)).c_str(),
                                copy.c_str()) != 0) {
      *whyNot = failure("copy link " + real);
      return false;
    }
    return true;
  }
  if (S_ISDIR(st.st_mode)) {
    if (::mkdir(copy.c_str(), 0755) != 0) {
      *whyNot = failure("mkdir " + copy);
      return false;
    }
  } else if (S_ISREG(st.st_mode)) {
    const int fd = ::open(copy.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
      *whyNot = failure("create " + copy);
      return false;
    }
    ::close(fd);
  } else {
    return true;  // sockets and devices at the top level: none that the tool needs
  }
  if (::mount(real.c_str(), copy.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
    *whyNot = failure("bind " + real);
    return false;
  }
  return true;
}

bool mountFresh(const std::string& name, mode_t mode, std::string* whyNot) {
  const std::string path = std::string(kStaging) + "/" + name;
  char options[16];
  std::snprintf(options, sizeof options, "mode=%o", static_cast<unsigned>(mode));
  if (::mkdir(path.c_str(), mode) != 0 ||
      ::mount("tmpfs", path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options) != 0) {
    *whyNot = failure("fresh " + path);
    return false;
  }
  return true;
}

bool makeDirectory(const std::string& path, mode_t mode, uid_t owner, gid_t group, std::string* whyNot) {
  if (::mkdir(path.c_str(), mode) != 0 || ::chown(path.c_str(), owner, group) != 0 ||
      ::chmod(path.c_str(), mode) != 0) {
    *whyNot = failure("mkdir " + path);
    return false;
  }
  return true;
}

bool buildRoot(std::string* whyNot) {
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    // In a plain chroot "/" is a directory inside some mount, and only a mount
    // can be made private.
    *whyNot = errno == EINVAL ? "make mounts private: / is not a mount point (inside a chroot?); "
                                "bind the chroot onto itself before entering it: mount --rbind DIR DIR"
                              : failure("make mounts private");
    return false;
  }
  if (::mount("tmpfs", kStaging, "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") != 0) {
    *whyNot = failure(std::string("mount staging root on ") + kStaging);
    return false;
  }
  DIR* root = ::opendir("/");
  if (!root) {
    *whyNot = failure("list /");
    return false;
  }
  bool ok = true;
  while (dirent* entry = ::readdir(root)) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == ".." || isFresh(name)) continue;
    if (!mirrorRootEntry(std::string(name), whyNot)) {
      ok = false;
      break;
    }
  }
  ::closedir(root);
  if (!ok) return false;
  for (std::string_view name : kFreshDirectories) {
    if (!mountFresh(std::string(name), name == "root" ? 0700 : 0755, whyNot)) return false;
  }
  const std::string staging = kStaging;
  return makeDirectory(staging + kStaging, 0755, 0, 0, whyNot) &&
         makeDirectory(staging + "/run/xpc", 0755, 0, 0, whyNot) &&
         makeDirectory(staging + Sandbox::kUserHome, 0755, Sandbox::kUserId, Sandbox::kGroupId, whyNot);
}

}  // namespace

std::unique_ptr<Sandbox> Sandbox::enter(std::string* whyNot) {
  if (::geteuid() != 0) {
    *whyNot = "a sandbox needs root (private mount namespaces)";
    return nullptr;
  }
  std::vector<char> cwd(4096);
  if (!::getcwd(cwd.data(), cwd.size())) cwd = {'/', '\0'};
  const int oldNamespace = ::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
  const int oldCwd = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (oldNamespace < 0 || oldCwd < 0) {
    *whyNot = failure("open the current namespace");
    if (oldNamespace >= 0) ::close(oldNamespace);
    if (oldCwd >= 0) ::close(oldCwd);
    return nullptr;
  }
  std::unique_ptr<Sandbox> sandbox(new Sandbox(oldNamespace, oldCwd));
  if (::unshare(CLONE_NEWNS) != 0) {
    *whyNot = failure("unshare the mount namespace");
    return nullptr;
  }
  // From here on, leaving the half-built sandbox is the destructor's work.
  if (!buildRoot(whyNot)) return nullptr;
  if (::chdir(kStaging) != 0 || ::chroot(".") != 0) {
    *whyNot = failure("enter the sandbox root");
    return nullptr;
  }
  if (::chdir(cwd.data()) != 0 && ::chdir("/") != 0) {
    *whyNot = failure("chdir");
    return nullptr;
  }
  return sandbox;
}

Sandbox::~Sandbox() {
  // Threads started inside share this thread's root and working directory,
  // and a thread that shares them cannot change namespace: it takes a copy of
  // its own first. Joining the namespace then resets the root and the working
  // directory to the namespace's, which undoes the chroot.
  if (::unshare(CLONE_FS) != 0 || ::setns(oldNamespace_, CLONE_NEWNS) != 0 || ::fchdir(oldCwd_) != 0) {
    // Carrying on would let everything after this act on a stale sandbox
    // that may no longer hide the machine, or on relative paths from the
    // wrong directory.
    std::fprintf(stderr, "qhv-sandbox: cannot leave the sandbox: %s\n", std::strerror(errno));
    std::abort();
  }
  ::close(oldNamespace_);
  ::close(oldCwd_);
}

}  // namespace qhv_sandbox
