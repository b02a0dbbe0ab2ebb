#include "Operations.h"

#include "support/FileSet.h"
#include "support/Kill.h"

#include <Disk/Disk_Access.h>
#include <Disk/Disk_CacheRepository.h>
#include <dicom/IOD_Image.h>
#include <infra/I18n.h>
#include <infra/Util_Clock.h>
#include <infra/Util_FileSystem.h>

namespace fs = std::filesystem;

namespace {

Phantom::Object const kKnown{}; // of every state but the empty one
constexpr char kInPlace[] = "/STUDY/SERIES/OBJECT";

Phantom::Object Other(Phantom::Object object) {
  object.bits = 10;
  return object;
}

template <class Act>
int WithRoot(Session& session, Act act) {
  Disk_RootDirectoryFile* const root = session.Root();
  return root ? session.Call([&] { return act(*root); }) : -1;
}

// Stores

Operation StoreOf(std::string name, Phantom::Object const& object, bool needs_study, std::string beside = {}) {
  Operation operation{.name = std::move(name), .needs_study = needs_study, .act = {}, .effect = {}};
  operation.beside = std::move(beside);
  operation.act = [object](Session& session) { return Store(session, *MakeObject(object)); };
  operation.effect = [object](Model& model, bool standard) { model.Add(*MakeObject(object), standard); };
  return operation;
}

void WriteObject(Phantom::Object object, std::string const& path) {
  object.size = 16;
  Require(Phantom::Write(object, path) == 0, "can't write " + path);
}

Operation StoreThatMoves() {
  Phantom::Object const object{.image = 8};
  Operation operation = StoreOf("store by move", object, true);
  operation.bring = [object](Site const& site) { WriteObject(object, site.Incoming()); };
  operation.act = [object](Session& session) {
    std::string source = session.site.Incoming();
    char stored[Disk_FileID::kPathSize] = "";
    auto const msg = MakeObject(object);
    return WithRoot(session, [&](auto& root) {
      return root.Store(msg.get(), false, 0, 0, nullptr, 1, source.data(), stored, nullptr);
    });
  };
  return operation;
}

Operation StoreInPlace() {
  Phantom::Object const object{.patient = 7};
  Operation operation = StoreOf("store in place", object, false);
  operation.bring = [object](Site const& site) {
    std::string const path = site.Set() + kInPlace;
    fs::create_directories(fs::path(path).parent_path());
    WriteObject(object, path);
  };
  operation.act = [object](Session& session) {
    std::string path = session.site.Set() + kInPlace;
    auto const msg = MakeObject(object);
    return WithRoot(session, [&](auto& root) { return ::StoreInPlace(root, msg.get(), path); });
  };
  return operation;
}

Operation CompressedStore() {
  Operation operation = StoreOf("store compressed", {.image = 9}, true);
  operation.flags = 0;
  return operation;
}

} // namespace

Operation SyncedStore(int image) {
  Phantom::Object const object{.image = image};
  Operation operation = StoreOf("store and sync", object, true);
  operation.is_synced_late = true;
  operation.act = [object](Session& session) {
    Util_Durability const before = Util_FileSystem::GetDurability();
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    int const stored = Store(session, *MakeObject(object));
    Util_FileSystem::SetDurability(before);
    return stored == 0 ? WithRoot(session, [](auto& root) { return root.Sync(); }) : -1;
  };
  return operation;
}

namespace {

// Deletes

int Delete(Session& session, QueryLevel level, Phantom::Object const& object = kKnown) {
  MXL_SubOperationsReport report;
  SCL_ResponseStatus status;
  SCL_MoveIdentifier const identifier = Named(level, object);
  int const result = WithRoot(session, [&](auto& root) { return root.Delete(identifier, 1, &report, status); });
  return result == 0 && int(report.Get(MXL_SubOperationsReport::Failed)) == 0 ? 0 : -1;
}

Operation DeleteOf(std::string name, QueryLevel level) {
  Operation operation{.name = std::move(name), .act = {}, .effect = {}, .again = -1};
  operation.act = [level](Session& session) { return Delete(session, level); };
  operation.effect = [level](Model& model, bool) {
    std::string const study = StudyOf(kKnown), series = SeriesOf(kKnown);
    std::string const image = ImageOf(kKnown);
    model.Remove([&](auto const& object) {
      return level == STUDY    ? object.second.study == study
             : level == SERIES ? object.second.series == series
                               : object.first == image;
    });
    auto const is_left = [&](auto const& object) { return object.second.study == study; };
    if (std::none_of(model.objects.begin(), model.objects.end(), is_left)) model.studies.erase(study);
  };
  return operation;
}

void RemoveAll(Model& model, bool) { model = {}; }

void RemoveUnprotected(Model& model, bool) {
  std::erase_if(model.studies, [](auto const& study) { return study.second.is_protected != "Y"; });
  std::erase_if(model.objects, [&](auto const& object) { return model.studies.count(object.second.study) == 0; });
  model.unfetched.clear();
}

// What is passed over is a failure for us, though not for the engine: it logs it, and gives 0.
int IsAllGone(Session& session, std::function<int(SCL_QueryIdentifier const&, Dicom_Sequence*)> const& query) {
  auto const all = Asking(STUDY, {{kStudyUid, ""}, {Dicom_Dictionary::KOLBA_PROTECTION_FLAG, ""}});
  Dicom_Sequence left;
  if (session.Call([&] { return query(all, &left); }) == -1) return -1;
  for (int i = 0; i < left.GetNItems(); ++i)
    if (IOD_Msg(*left.Get(i)).GetProtectionFlag() != IOD_Image::Y) return -1;
  return 0;
}

int AutoDelete(Session& session) {
  if (WithRoot(session, [](auto& root) { return root.AutoDelete(); }) == -1) return -1;
  return IsAllGone(session, [&](auto const& all, auto* left) { return session.Root()->Query(all, 1, left); });
}

int CleanCache(Session& session) {
  Disk_CacheRepository cache;
  cache.SetPath(FromUTF8(session.site.Set().c_str()));
  if (session.Call([&] { return cache.Construct(); }) == -1) return -1;
  auto const all = Asking(STUDY, {{kStudyUid, ""}});
  Dicom_Sequence answers;
  if (session.Call([&] { return cache.Query(all, 1, &answers); }) == -1) return -1;
  constexpr int kAnyGrade = 100;
  cache.SetThreshold(kAnyGrade);
  if (session.Call([&] { return cache.AutoCleanNStudies(answers.GetNItems()); }) == -1) return -1;
  return IsAllGone(session, [&](auto const& wanted, auto* left) { return cache.Query(wanted, 1, left); });
}

// Changes

template <class Change>
Operation ChangeOf(std::string name, std::string Study::*attribute, std::string value, Change change) {
  Operation operation{.name = std::move(name), .is_standard = false, .act = {}, .effect = {}};
  operation.act = [change](Session& session) { return WithRoot(session, change); };
  operation.effect = [attribute, value](Model& model, bool) {
    if (attribute) model.studies[StudyOf(kKnown)].*attribute = value;
  };
  return operation;
}

Operation PatientCorrection(Dicom_LO const& old_id, Dicom_LO const& issuer) {
  auto const act = [=, id = Dicom_LO("NEW-ID"), name = Dicom_PN("New^Name")](auto& root) {
    return root.ChangePatientsName(old_id, issuer, name, id, LO_NULL);
  };
  Operation operation = ChangeOf("correct patient", nullptr, "", act);
  operation.again = -1;
  operation.effect = [old = old_id.GetText()](Model& model, bool) {
    auto const correct = [&old](auto& what) {
      if (what.patient_id != old) return;
      what.patient_id = "NEW-ID";
      what.patient_name = "New^Name";
    };
    for (auto& [uid, content] : model.objects)
      correct(content);
    for (auto& [uid, study] : model.studies)
      correct(study);
  };
  return operation;
}

// Of a study in a file-set of its own into a standard one.
Operation Export() {
  static Phantom::Object const s_objects[] = {{.patient = 8}, {.patient = 8, .image = 2}, {.patient = 8, .series = 2}};
  Operation operation{.name = "export", .is_private = false, .needs_study = false, .act = {}, .effect = {}};
  operation.bring = [](Site const& site) {
    fs::create_directories(site.Source());
    auto const root = OpenForAll(site.Source(), Disk_StoreParams::STORE_NATIVE);
    for (auto const& object : s_objects)
      Require(StoreObject(*root, MakeObject(object).get()) == 0, "no source to export");
  };
  operation.act = [](Session& session) {
    auto const source = OpenForAll(session.site.Source(), 0);
    if (!source) return -1;
    auto const study = Asking(STUDY, {{kStudyUid, StudyOf(s_objects[0])}});
    Disk_Access access(*source);
    if (session.Call([&] { return access.OpenQuery(study, 1); }) == -1) return -1;
    while (access.HasMore()) {
      IOD_Msg* fetched = nullptr;
      if (session.Call([&] { return access.FetchNext(&fetched); }) == -1) return -1;
      std::unique_ptr<IOD_Msg> const object(fetched);
      if (Store(session, *object) == -1) return -1;
    }
    return 0;
  };
  operation.effect = [](Model& model, bool standard) {
    for (auto const& object : s_objects)
      model.Add(*MakeObject(object), standard);
  };
  return operation;
}

// Completes what a killed process left, where there is something to complete.
Operation Recovery() {
  Operation operation{.name = "recovery", .needs_study = false, .act = {}, .effect = [](Model&, bool) {}};
  operation.act = [](Session& session) {
    auto const all = Asking(STUDY, {{kStudyUid, ""}});
    Dicom_Sequence answers;
    return WithRoot(session, [&](auto& root) { return root.Query(all, 1, &answers); });
  };
  return operation;
}

std::vector<Operation> MakeOperations() {
  Operation auto_delete{.name = "auto-delete", .is_standard = false, .act = AutoDelete, .effect = RemoveUnprotected};
  Operation clean{.name = "cache clean", .is_standard = false, .act = CleanCache, .effect = RemoveAll};
  static SCL_MoveIdentifier const s_study = Named(STUDY, kKnown);
  static Dicom_UI const s_uid = Phantom::StudyUid(kKnown);
  auto const protect = [](auto& root) { return root.ProtectImages(s_study, 1, nullptr); };
  auto const unprotect = [](auto& root) { return root.UnprotectImages(s_study, 1, nullptr); };
  auto const known = MakeObject(kKnown);
  Dicom_LO const id = known->GetPatientID(), issuer = known->GetIssuerOfPatientID();
  auto const correct = [id, issuer, maker = Dicom_LO("New maker")](auto& root) {
    return root.ChangeManufacturerParms(id, issuer, maker, LO_NULL);
  };
  auto const complete = [](auto& root) { return root.SetStudyCompleted(s_uid); };
  return {StoreOf("store new patient", {.patient = 9}, false),
          StoreOf("store new study", {.study = 9}, true, "delete study"),
          StoreOf("store new series", {.series = 9}, true, "delete series"),
          StoreOf("store image", {.image = 7}, true, "delete image"),
          StoreOf("store known image", Other(kKnown), true),
          StoreThatMoves(),
          StoreInPlace(),
          CompressedStore(),
          SyncedStore(10),
          DeleteOf("delete image", IMAGE),
          DeleteOf("delete series", SERIES),
          DeleteOf("delete study", STUDY),
          ChangeOf("protect", &Study::is_protected, "Y", protect),
          ChangeOf("unprotect", &Study::is_protected, "N", unprotect),
          ChangeOf("complete", &Study::is_completed, "Y", complete),
          PatientCorrection(id, issuer),
          ChangeOf("correct maker", nullptr, "", correct), // which only the objects name
          auto_delete,
          clean,
          Export(),
          Recovery()};
}

// States

constexpr std::time_t kNow = 1700000000, kLongAgo = kNow - 100 * 86400;

struct State {
  std::string name;
  std::vector<Phantom::Object> objects;
  std::function<int(Session&)> cut = {}; // an operation that is killed
  std::string_view at = {};              // when it first asks for this; else half way
  int depth = -1;                        // of what is so many folders below the file-set's; else of anything
  std::set<std::string> in_flight = {};  // what it was about
  bool is_private = true, is_standard = true;
};

std::vector<State> States() {
  std::vector<Phantom::Object> const one{{}};
  std::vector<Phantom::Object> const several{{},           {.image = 2},   {.series = 2},
                                             {.study = 2}, {.patient = 2}, {.patient = 2, .image = 2}};
  Phantom::Object const stored{.image = 6};
  auto const store = [stored](Session& session) { return Store(session, *MakeObject(stored)); };
  auto const remove = [](QueryLevel level, Phantom::Object const& object) {
    return [=](Session& session) { return Delete(session, level, object); };
  };
  std::string const uid = ImageOf(stored);
  std::set<std::string> const removed{ImageOf({.patient = 2}), ImageOf({.patient = 2, .image = 2})};
  std::set<std::string> all_of_study;
  for (Phantom::Object const& object : {kKnown, Phantom::Object{.image = 2}, Phantom::Object{.series = 2}})
    all_of_study.insert(ImageOf(object));
  return {{"empty", {}},
          {"one object", one},
          {"several studies", several},
          {"a store was killed", several, store, {}, -1, {uid}},
          {"a delete was killed", several, remove(STUDY, {.patient = 2}), {}, -1, removed},
          // before the records above are replaced
          {"a study has no folder", several, remove(STUDY, kKnown), "Rename", 0, all_of_study, true, false},
          {"a series has no folder", several, remove(SERIES, kKnown), "Rename", 1, all_of_study, true, false},
          {"a bulk store was killed", several, SyncedStore(6).act, "Rename", 1, {uid}}, // half a copy of a file is left
          {"a redo record is pending", several, store, "Pwrite", -1, {uid}, false}};
}

// Runs the state's last operation in a process that ends in the middle of it.
void Interrupt(State const& state, Site const& site) {
  auto const act = [&] {
    Session session(site, Disk_StoreParams::STORE_NATIVE);
    return state.cut(session);
  };
  if (!state.at.empty()) {
    Require(InChild([&] {
              FaultyFileSystem const killing([&](std::string_view call, char const* path) {
                if (call != state.at) return 0;
                std::string const below = fs::path(path).lexically_relative(site.Set()).string();
                if (state.depth == -1 || std::count(below.begin(), below.end(), '/') == state.depth) _exit(kKilled);
                return 0;
              });
              return act();
            }) == kKilled,
            state.name + ": isn't");
    return;
  }
  int const calls = CountWrites([&] {
    Session session(site.Copy(site.directory + ".copy"), Disk_StoreParams::STORE_NATIVE);
    return state.cut(session);
  });
  Require(KillAt(calls / 2, act) == kKilled, state.name + ": wasn't");
}

// What the file-set holds: all that was acknowledged, and of what was in flight whatever it tells.
Model Prepare(State const& state, Site const& site) {
  fs::create_directories(site.Set());
  Util_Clock::SetNow(kLongAgo);
  Model stored;
  {
    Session session(site, Disk_StoreParams::STORE_NATIVE);
    for (auto const& object : state.objects) {
      Require(Store(session, *MakeObject(object)) == 0, state.name + ": a store fails");
      stored.Add(*MakeObject(object), site.standard);
    }
  }
  if (state.cut) Interrupt(state, site);
  Util_Clock::SetNow(kNow);
  Model found;
  if (!state.objects.empty())
    found = Ask(*OpenForAll(site.Copy(site.directory + ".copy").Set(), site.Structure()), site.standard);
  for (auto const& [uid, content] : stored.objects)
    Require(state.in_flight.count(uid) != 0 || (found.objects.count(uid) != 0 && found.objects[uid] == content),
            state.name + ": lost " + uid);
  return found;
}

} // namespace

int Store(Session& session, IOD_Msg& object) {
  return WithRoot(session, [&](auto& root) { return StoreObject(root, &object); });
}

Site Site::Copy(std::string const& to) const {
  fs::remove_all(to);
  fs::copy(directory, to, fs::copy_options::recursive);
  return {to, standard};
}

void Case::BringBack(Site const& site) const {
  std::string const original = Site{prepared}.Incoming();
  if (fs::exists(original) && !fs::exists(site.Incoming())) fs::copy(original, site.Incoming());
}

void Case::Again(Session& session) const {
  Require(operation->act(session) == 0 || operation->again == -1, "done again it fails");
}

std::vector<Operation> const& Operations() {
  static std::vector<Operation> const s_operations = MakeOperations();
  return s_operations;
}

std::vector<Case> Cases(Selection const& selection, std::string const& directory) {
  std::vector<Case> cases;
  for (bool const standard : {false, true}) {
    if (!selection.structure.empty() && (selection.structure == "standard") != standard) continue;
    for (State const& state : States()) {
      if (!(standard ? state.is_standard : state.is_private)) continue;
      std::string const place = directory + "/" + (standard ? "standard " : "private ") + state.name;
      Model const before = Prepare(state, {place, standard});
      for (Operation const& operation : Operations()) {
        if (!selection.operation.empty() && selection.operation != operation.name) continue;
        if (!(standard ? operation.is_standard : operation.is_private)) continue;
        if (operation.needs_study && state.objects.empty()) continue;
        Case c{&operation, state.name, standard, place + ", " + operation.name, before, before};
        fs::copy(place, c.prepared, fs::copy_options::recursive);
        operation.bring({c.prepared, standard});
        operation.effect(c.after, standard);
        cases.push_back(std::move(c));
      }
    }
  }
  return cases;
}
