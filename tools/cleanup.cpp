#include "tools/cleanup.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace fbc::cli {

namespace {

// The registry lives in static storage, so the handler reads it without allocating. A slot is
// claimed (kFilling), its path copied, then published (kFile or kDirectory); the handler only
// touches published slots.
enum SlotState : int { kFree, kFilling, kFile, kDirectory };
constexpr int kSlots = 64;
constexpr std::size_t kPathBytes = 4096;

struct Slot {
  std::atomic<int> state{kFree};
  char path[kPathBytes];
};
Slot gSlots[kSlots];

const int kCleanedSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Removes the files of a directory and the directory, with system calls only. Entries are read
// with getdents64 (opendir may allocate); a pass that removes files may miss entries that moved
// in the listing, so passes repeat until one removes nothing.
void removeFlatDirectory(const char* path) {
#ifdef SYS_getdents64
  struct Entry {
    std::uint64_t ino;
    std::int64_t off;
    unsigned short reclen;
    unsigned char type;
    char name[1];
  };
  const int fd = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    for (int pass = 0; pass < 8; ++pass) {
      bool removed = false;
      ::lseek(fd, 0, SEEK_SET);
      alignas(8) char buffer[4096];
      long n;
      while ((n = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer)) > 0) {
        for (long at = 0; at < n;) {
          const Entry* e = reinterpret_cast<const Entry*>(buffer + at);
          const char* name = buffer + at + offsetof(Entry, name);
          const bool dots =
              name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
          if (!dots && ::unlinkat(fd, name, 0) == 0) removed = true;
          at += e->reclen;
        }
      }
      if (!removed) break;
    }
    ::close(fd);
  }
#endif
  ::rmdir(path);
}

extern "C" void onTerminatingSignal(int sig) {
  const int savedErrno = errno;
  for (Slot& slot : gSlots) {
    const int state = slot.state.load();
    if (state == kFile) ::unlink(slot.path);
    if (state == kDirectory) removeFlatDirectory(slot.path);
  }
  errno = savedErrno;
  // The handler was installed to run once: the signal now takes its default action, delivered
  // as soon as the handler returns and unblocks it.
  ::signal(sig, SIG_DFL);
  ::raise(sig);
}

sigset_t cleanedSet() {
  sigset_t set;
  sigemptyset(&set);
  for (int sig : kCleanedSignals) sigaddset(&set, sig);
  return set;
}

}  // namespace

void installSignalCleanup() {
  struct sigaction action {};
  action.sa_handler = onTerminatingSignal;
  action.sa_mask = cleanedSet();  // one cleanup at a time, whichever signal comes first
  action.sa_flags = SA_RESETHAND;
  for (int sig : kCleanedSignals) {
    // A signal ignored by whoever started the tool (nohup) stays ignored.
    struct sigaction old {};
    if (::sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
    ::sigaction(sig, &action, nullptr);
  }
  ::signal(SIGPIPE, SIG_IGN);
}

SignalsHeld::SignalsHeld() {
  const sigset_t set = cleanedSet();
  ::pthread_sigmask(SIG_BLOCK, &set, &previous_);
}

SignalsHeld::~SignalsHeld() {
  ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

void RemovedOnSignal::add(const std::string& path, bool directory) {
  release();
  // A path too long for a slot, or more live temporaries than slots, goes unregistered: the
  // run still works, only an interruption could leave that one behind.
  if (path.size() >= kPathBytes) return;
  for (int i = 0; i < kSlots; ++i) {
    int expected = kFree;
    if (!gSlots[i].state.compare_exchange_strong(expected, kFilling)) continue;
    std::memcpy(gSlots[i].path, path.c_str(), path.size() + 1);
    gSlots[i].state.store(directory ? kDirectory : kFile);
    slot_ = i;
    return;
  }
}

void RemovedOnSignal::release() {
  if (slot_ >= 0) gSlots[slot_].state.store(kFree);
  slot_ = -1;
}

}  // namespace fbc::cli
