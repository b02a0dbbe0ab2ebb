#include "Interruption.h"

#include <csignal>
#include <initializer_list>

namespace {

volatile std::sig_atomic_t s_signal = 0;

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

void EndIfInterrupted() {
  if (s_signal == 0) return;
  std::signal(s_signal, SIG_DFL);
  std::raise(s_signal);
}
