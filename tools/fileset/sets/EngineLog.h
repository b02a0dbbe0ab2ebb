// Listens to what the library logs in the thread that made it, to find out why an operation failed there. What other
// threads try ahead of time fails again, and is told, when its turn comes.
//
//   EngineLog log("/data/set");
//   log.Begin();
//   if (root.Store(...) == -1) report.Fail(file, log.Cause());
#pragma once

#include <string>
#include <vector>

class EngineLog {
public:
  // `directory`: that of the file-set; a line that names a file there tells more than others. There is one
  // such object at a time.
  explicit EngineLog(std::string directory);
  ~EngineLog();
  EngineLog(EngineLog const&) = delete;
  EngineLog& operator=(EngineLog const&) = delete;

  // Forgets what was said so far, and the last error code.
  void Begin();
  // Why the operation since Begin failed, in one line.
  std::string Cause() const;
  // The lines since Begin that tell what is damaged, each once, when the operation went on past several such places.
  std::vector<std::string> Places() const;
  // Why a call on this file failed since Begin, in the system's words; empty if that wasn't said.
  std::string CauseOf(std::string const& path) const;
  // Whether something failed since Begin, be it that the operation went on.
  bool HasErrors() const;

private:
  bool names_place(std::string const& text) const;

  std::string directory_;
  std::vector<std::string> errors_; // the texts, the deepest first
};
