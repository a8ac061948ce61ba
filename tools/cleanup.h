// What the tool leaves behind when it is interrupted: nothing. Temporary files and private
// directories are registered while they exist; SIGINT, SIGTERM or SIGHUP removes them and then
// ends the process by the same signal, so the shell still sees how it ended.
#pragma once

#include <signal.h>

#include <string>

namespace fbc::cli {

// Installs the handler of the three signals and ignores SIGPIPE, so that a reader that closes
// standard output shows up as a failed write the tool can end quietly on. Once, from main.
void installSignalCleanup();

// Holds SIGINT, SIGTERM and SIGHUP back for its lifetime, for the moment between creating a
// temporary file and registering it; a signal that arrives meanwhile is delivered afterwards.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t previous_;
};

// Registers `path` for removal by the signal handler while the object lives: a file, or a
// directory holding only files. Removing it in normal operation stays the owner's work.
class RemovedOnSignal {
 public:
  RemovedOnSignal() = default;
  RemovedOnSignal(const std::string& path, bool directory) { add(path, directory); }
  ~RemovedOnSignal() { release(); }
  RemovedOnSignal(const RemovedOnSignal&) = delete;
  RemovedOnSignal& operator=(const RemovedOnSignal&) = delete;

  void add(const std::string& path, bool directory);
  void release();

 private:
  int slot_ = -1;
};

}  // namespace fbc::cli
