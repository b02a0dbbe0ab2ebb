// The toolkit's index database, in this process: stores and queries with as many objects as we have.
#include "FileSet.h"
#include "Limits.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dctk.h>
#include <dcmtk/dcmqrdb/dcmqrdbi.h>
#include <dcmtk/dcmqrdb/dcmqrdbs.h>
#include <dcmtk/dcmqrdb/dcmqropt.h>
#include <dicom/Util_File.h>
#include <fstream>

namespace {

using namespace Bench;

class Database {
public:
  explicit Database(std::string const& folder) : folder_(folder), handle_(folder.c_str(), 500, 1L << 40, result_) {
    Require(result_.good(), "opening the toolkit's database");
  }

  /// An object that is in memory already.
  void Store(DcmFileFormat& object) {
    OFString sop_class, uid;
    object.getDataset()->findAndGetOFString(DCM_SOPClassUID, sop_class);
    object.getDataset()->findAndGetOFString(DCM_SOPInstanceUID, uid);
    char name[1024];
    Require(handle_.makeNewStoreFileName(sop_class.c_str(), uid.c_str(), name, sizeof name).good(), "naming");
    Require(object.saveFile(name, EXS_LittleEndianExplicit).good(), "the toolkit's saving");
    DcmQueryRetrieveDatabaseStatus status;
    Require(handle_.storeRequest(sop_class.c_str(), uid.c_str(), name, &status).good(), "the toolkit's storing");
  }

  void Ask(DcmDataset& identifier, int answers) {
    DcmQueryRetrieveDatabaseStatus status(STATUS_Pending);
    DcmQueryRetrieveCharacterSetOptions const options;
    Require(handle_.startFindRequest(UID_FINDStudyRootQueryRetrieveInformationModel, &identifier, &status).good(),
            "the toolkit's querying");
    int found = 0;
    while (status.status() == STATUS_Pending) {
      DcmDataset* response = nullptr;
      Require(handle_.nextFindResponse(&response, &status, options).good(), "the toolkit's answering");
      found += status.status() == STATUS_Pending;
      delete response;
    }
    Require(found == answers, "the toolkit's answers (" + std::to_string(found) + ")");
  }

private:
  std::string folder_;
  OFCondition result_;
  DcmQueryRetrieveIndexDatabaseHandle handle_;
};

std::unique_ptr<DcmFileFormat> Converted(Phantom::Object const& place) {
  std::string bytes;
  Require(Phantom::Make(place)->ToFileBytes(&bytes) == 0, "writing an object");
  DcmInputBufferStream stream;
  stream.setBuffer(bytes.data(), offile_off_t(bytes.size()));
  stream.setEos();
  auto file = std::make_unique<DcmFileFormat>();
  file->transferInit();
  Require(file->read(stream).good() && file->loadAllDataIntoMemory().good(), "the toolkit's reading");
  file->transferEnd();
  return file;
}

/// Storing 20,000 objects would take a quarter of an hour: the records of one study are copied for the others, with
/// other UIDs of the same length.
void CloneStudies(std::string const& folder, int studies) {
  std::string const path = folder + "/index.dat";
  constexpr int kObjects = kSeries * kImages;
  std::size_t const size = std::filesystem::file_size(path);
  std::string const all = Bytes(path);
  std::size_t const record = 8032, header = size - record * kObjects;
  std::vector<std::string> uids{Phantom::StudyUid(Usual(0)).GetText()};
  for (int i = 0; i < kObjects; ++i) {
    if (i % kImages == 0) uids.push_back(Phantom::SeriesUid(Usual(i)).GetText());
    uids.push_back(Phantom::InstanceUid(Usual(i)).GetText());
  }
  Require(all.find(uids[0], header) != all.npos && all.find(uids.back(), size - record) != all.npos,
          "finding the toolkit's records");
  std::string cloned = all.substr(header);
  std::vector<std::size_t> places; // of the last three digits of each UID
  for (std::string const& uid : uids)
    for (std::size_t at = cloned.find(uid); at != cloned.npos; at = cloned.find(uid, at + 1))
      places.push_back(at + uid.size() - 3);
  std::ofstream index(path, std::ios::binary | std::ios::app);
  for (int study = 1; study < studies; ++study) {
    std::string const digits = std::to_string(1000 + study).substr(1);
    for (std::size_t const place : places)
      cloned.replace(place, 3, digits);
    index << cloned;
  }
  Require(bool(index.flush()), "writing the toolkit's records");
}

DcmDataset Identifier(char const* level, Phantom::Object const& place, int uids, int wanted) {
  DcmDataset identifier;
  identifier.putAndInsertString(DCM_QueryRetrieveLevel, level);
  std::pair<DcmTagKey, std::string> const keys[] = {{DCM_StudyInstanceUID, Phantom::StudyUid(place).GetText()},
                                                    {DCM_SeriesInstanceUID, Phantom::SeriesUid(place).GetText()},
                                                    {DCM_SOPInstanceUID, Phantom::InstanceUid(place).GetText()}};
  for (int i = 0; i < wanted; ++i)
    identifier.putAndInsertString(keys[i].first, i < uids ? keys[i].second.c_str() : "");
  if (wanted == 1)
    for (DcmTagKey const& key : {DCM_PatientName, DCM_PatientID, DCM_StudyDate})
      identifier.putAndInsertString(key, "");
  else
    identifier.putAndInsertString(DCM_InstanceNumber, "");
  return identifier;
}

void Measure(Scope const& scope, int objects, bool queries) {
  Progress("the toolkit's index database with " + std::to_string(objects) + " objects");
  constexpr int kRuns = 7;
  Folder const folder(scope.base);
  int const own = std::min(objects, kSeries * kImages), studies = std::max(1, objects / (kSeries * kImages));
  {
    Database database(folder.Path());
    for (int i = 0; i < own; ++i)
      database.Store(*Converted(Usual(i)));
  }
  if (studies > 1) CloneStudies(folder.Path(), studies);
  Database database(folder.Path());
  std::vector<std::unique_ptr<DcmFileFormat>> next;
  for (int i = 0; i <= kRuns; ++i)
    next.push_back(Converted({.image = kImages + i + 1}));
  Settle();
  if (queries) {
    auto const ask = [&](char const* what, DcmDataset identifier, int answers) {
      Report("query", what, "toolkit", objects, MedianOf(kRuns, [&] { database.Ask(identifier, answers); }));
    };
    ask("all studies", Identifier("STUDY", Usual(0), 0, 1), studies);
    ask("one study", Identifier("STUDY", Usual(0), 1, 1), 1);
    ask("images of a series", Identifier("IMAGE", Usual(0), 2, 3), kImages);
    ask("one image", Identifier("IMAGE", Usual(0), 3, 3), 1);
  }
  std::size_t run = 0;
  Report("store, peers", "objects", "toolkit", objects, MedianOf(kRuns, [&] { database.Store(*next[run++]); }));
}

/// Ours, the same objects into as many, without syncs as the toolkit makes none.
void MeasureOurs(Scope const& scope, int objects) {
  Folder const folder(scope.base);
  auto const root = Open(folder.Path());
  Fill(*root, objects, Usual);
  for (Util_Durability const durability : {Util_Durability::Relaxed, Util_Durability::Full}) {
    std::vector<std::unique_ptr<IOD_Msg>> next;
    int const first = durability == Util_Durability::Full ? 1000 : 100;
    for (int i = 0; i <= kTurns; ++i)
      next.push_back(Phantom::Make({.image = first + i}));
    Settle();
    Util_FileSystem::SetDurability(durability);
    std::size_t run = 0;
    Report("store, peers", "objects", std::string("ours, ") + NameOf(durability), objects,
           MedianOf(kTurns, [&] { Bench::Store(*root, *next[run++]); }));
  }
}

} // namespace

void Bench::Toolkit(Scope const& scope) {
  OFLog::configure(OFLogger::OFF_LOG_LEVEL);
  for (int const objects : scope.quick ? std::vector{100, 2000} : std::vector{100, 1000, 5000, 20000}) {
    Measure(scope, objects, objects == (scope.quick ? 2000 : 20000));
    MeasureOurs(scope, objects);
  }
}
