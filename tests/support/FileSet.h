// What callers do with a file-set, in a line each: for tests, campaigns and fuzz targets alike.
#pragma once

#include "Phantom.h"

#include <Disk/Disk_Check.h>
#include <Disk/Disk_RootDirectoryFile.h>
#include <dicom/SCL_Identifier.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using QueryLevel = SCL_QueryRetrieveLevel::Value;
constexpr QueryLevel STUDY = SCL_QueryRetrieveLevel::STUDY, SERIES = SCL_QueryRetrieveLevel::SERIES,
                     IMAGE = SCL_QueryRetrieveLevel::IMAGE;
constexpr Dicom_Tag kStudyUid(0x0020, 0x000D), kSeriesUid(0x0020, 0x000E), kSopUid(0x0008, 0x0018),
    kFileId(0x0004, 0x1500), kPatientId(0x0010, 0x0020), kPatientName(0x0010, 0x0010), kRecordType(0x0004, 0x1430),
    kModality(0x0008, 0x0060), kModalities(0x0008, 0x0061), kStudySeries(0x0020, 0x1206), kStudyImages(0x0020, 0x1208),
    kSeriesImages(0x0020, 0x1209);

/// Null when it can't be opened.
inline std::unique_ptr<Disk_RootDirectoryFile> OpenSet(std::string const& path, unsigned flags,
                                                       Disk_StorageStrategy* strategy = nullptr) {
  int status = 0;
  auto root = std::make_unique<Disk_RootDirectoryFile>(path.c_str(), Disk_StoreParams(flags), 0, &status, strategy);
  return status == 0 ? std::move(root) : nullptr;
}

inline int StoreObject(Disk_RootDirectoryFile& root, IOD_Msg* object, bool tolerate = false, bool icon = false) {
  return root.Store({.msg = object, .add_icon = icon, .store_unmatching_images = tolerate});
}
inline int StoreInPlace(Disk_RootDirectoryFile& root, IOD_Msg* object, std::string path) {
  return root.Store(object, false, 0, 1, path.data(), 0, nullptr, nullptr, nullptr); // tests use both forms
}

/// UIDs as texts.
inline std::string StudyOf(Phantom::Object const& object) { return Phantom::StudyUid(object).GetText(); }
inline std::string SeriesOf(Phantom::Object const& object) { return Phantom::SeriesUid(object).GetText(); }
inline std::string ImageOf(Phantom::Object const& object) { return Phantom::InstanceUid(object).GetText(); }

/// The study, series or object that one belongs to, by the UIDs of that level.
inline SCL_MoveIdentifier Named(QueryLevel level, Phantom::Object const& object) {
  int error = 0;
  SCL_MoveIdentifier identifier(level, &error);
  identifier.SetStudyInstanceUID(Phantom::StudyUid(object));
  if (level >= SERIES) identifier.SetSeriesInstanceUID(Phantom::SeriesUid(object));
  if (level >= IMAGE) identifier.SetSOPInstanceUID(Phantom::InstanceUid(object));
  return identifier;
}

/// Null when it isn't fetched. `told` is what the operation gave.
inline std::unique_ptr<IOD_Msg> FetchObject(Disk_RootDirectoryFile& root, SCL_MoveIdentifier const& identifier,
                                            int* told = nullptr) {
  IOD_Msg* object = nullptr;
  int const result = root.GetOne(identifier, 1, &object, nullptr);
  if (told) *told = result;
  return std::unique_ptr<IOD_Msg>(result == 0 ? object : nullptr);
}

/// What a delete gives and tells.
struct Deletion {
  int result, status, completed, failed;
  friend bool operator==(Deletion const&, Deletion const&) = default;
  friend std::ostream& operator<<(std::ostream& out, Deletion const& o) {
    return out << o.result << " " << o.status << " " << o.completed << " " << o.failed;
  }
};
inline Deletion DeleteObjects(Disk_RootDirectoryFile& root, SCL_MoveIdentifier const& identifier) {
  MXL_SubOperationsReport report;
  SCL_ResponseStatus status;
  int const result = root.Delete(identifier, 1, &report, status);
  return {result, status, report.Get(report.Completed), report.Get(report.Failed)};
}

using Keys = std::vector<std::pair<Dicom_Tag, std::string>>;
inline SCL_QueryIdentifier Asking(QueryLevel level, Keys const& keys = {}) {
  SCL_QueryIdentifier identifier(level);
  for (auto const& [tag, value] : keys)
    identifier.Set(tag, Dicom_UT(value));
  return identifier;
}

/// The answers to a query of a root or a cache; `result` is what it gave.
using Answers = std::vector<std::unique_ptr<IOD_Msg>>;
template <class Set>
Answers AnswersOf(Set& set, SCL_QueryIdentifier const& identifier, int* result) {
  Dicom_Sequence results;
  *result = set.Query(identifier, 1, &results);
  Answers answers;
  for (int i = 0; i < results.GetNItems(); ++i)
    answers.push_back(std::make_unique<IOD_Msg>(*results.Get(i)));
  return answers;
}

inline int CheckSet(std::string const& path, unsigned structure, bool deep, Disk_CheckResult* result) {
  Disk_CheckOptions options;
  options.deep = deep;
  return Disk_Check(path.c_str(), Disk_StoreParams(structure), options, result);
}
