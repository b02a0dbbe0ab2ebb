// Every operation that writes, and the states of a file-set that it may meet. A case is an operation in one state of
// one structure; its file-set is made once and copied for each run.
//
//   Case const& c = ...;
//   Site const site = c.Copy(directory);
//   Session session(site, c.operation->flags);
//   int const result = c.operation->act(session);
//   Judge(c, site, result == 0 ? Outcome::Done : Outcome::Unknown);   // Oracle.h
#pragma once

#include "Model.h"
#include "support/TempDirectory.h"

#include <functional>
#include <vector>

/// A place on the disk: the file-set, and beside it what callers have.
struct Site {
  std::string directory;
  bool standard = false;

  std::string Set() const { return directory + "/set"; }
  std::string Incoming() const { return directory + "/incoming"; } // the file of a store that moves it
  std::string Source() const { return directory + "/source"; }     // the file-set of an export
  unsigned Structure() const { return standard ? unsigned(Disk_StoreParams::STANDARD_STRUCTURE) : 0; }
  /// A copy, which replaces what is in the directory.
  Site Copy(std::string const& to) const;
};

/// A caller's root object, opened when it is first needed, and the calls that it makes to the engine.
class Session {
public:
  Session(Site const& where, unsigned flags) : site(where), flags_(flags) {}
  /// Null when it can't be opened.
  Disk_RootDirectoryFile* Root() {
    if (!root_) root_ = OpenForAll(site.Set(), flags_ | site.Structure());
    return root_.get();
  }
  bool IsOpen() const { return root_ != nullptr; }
  template <class Work>
  int Call(Work work) {
    struct Scope {
      explicit Scope(std::function<void(bool)> const& enters) : around(enters) {
        if (around) around(true);
      }
      ~Scope() {
        if (around) around(false);
      }
      std::function<void(bool)> const& around;
    } const scope(around);
    return work();
  }
  Site const site;
  std::function<void(bool)> around = {}; // called with true before, and false after, each call of the engine

private:
  unsigned flags_;
  std::unique_ptr<Disk_RootDirectoryFile> root_;
};

struct Operation {
  std::string name;
  bool is_private = true, is_standard = true; // which structures serve it
  bool needs_study = true;                    // the first image of the first series of the first study
  std::function<int(Session&)> act;
  std::function<void(Model&, bool standard)> effect;
  std::function<void(Site const&)> bring = [](Site const&) {}; // what its caller has
  int again = 0; // -1: once it has taken effect there is nothing left to do, and that is told
  unsigned flags = Disk_StoreParams::STORE_NATIVE;
  bool is_synced_late = false; // by itself, at its end
  std::string beside = {}; // an operation that deletes beside what this one stores, and must take nothing of it along
};

struct Case {
  Operation const* operation;
  std::string state;
  bool standard;
  std::string prepared; // a site
  Model before, after;

  std::string Name() const { return operation->name + ", " + (standard ? "standard" : "private") + ", " + state; }
  Site Copy(std::string const& to) const { return Site{prepared, standard}.Copy(to); }
  /// The file of a store that moves it, where it has gone.
  void BringBack(Site const& site) const;
  /// Does the operation once more.
  void Again(Session& session) const;
};

std::vector<Operation> const& Operations();
/// A bulk load of one object in the known series: relaxed, and what it stored has lasted once it has returned.
Operation SyncedStore(int image);

/// Which of them are wanted: empty texts stand for all.
struct Selection {
  std::string operation, structure;
};

/// The cases, prepared below `directory`.
std::vector<Case> Cases(Selection const& selection, std::string const& directory);

/// A store of one object.
int Store(Session& session, IOD_Msg& object);
