#include "program/Interruption.h"

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace {

std::atomic<int> s_signal{0}; // the signal may come in one thread and be asked for in another
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void NoteSignal(int signal) { s_signal = signal; }

} // namespace

void WatchForInterruption() {
  struct sigaction action {};
  action.sa_handler = NoteSignal;
  action.sa_flags = int(SA_RESETHAND | SA_RESTART);
  for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction former {};
    if (sigaction(signal, nullptr, &former) == 0 && former.sa_handler != SIG_IGN) // nohup stays in force
      sigaction(signal, &action, nullptr);
  }
  std::signal(SIGPIPE, SIG_IGN);
}

bool IsInterrupted() { return s_signal != 0; }
