// A file-set to measure, of CT objects in one place each.
#pragma once

#include "Bench.h"
#include "Phantom.h"

#include <Disk/Disk_RootDirectoryFile.h>
#include <infra/Util_FileSystem.h>
#include <memory>

namespace Bench {

constexpr unsigned kNative = Disk_StoreParams::STORE_NATIVE;
constexpr int kTurns = 21, kImages = 50, kSeries = 4; // images of a series, series of a study, where they are usual

inline std::unique_ptr<Disk_RootDirectoryFile> Open(std::string const& folder, unsigned params = kNative,
                                                    Disk_StorageStrategy* strategy = nullptr) {
  int status = 0;
  auto root = std::make_unique<Disk_RootDirectoryFile>(folder.c_str(), Disk_StoreParams(params), 0, &status, strategy);
  Require(status == 0, "opening " + folder);
  return root;
}

inline void Store(Disk_RootDirectoryFile& root, IOD_Msg& object) {
  Require(root.Store({.msg = &object}) == 0, "storing");
}

inline void Store(Disk_RootDirectoryFile& root, Phantom::Object const& object) { Store(root, *Phantom::Make(object)); }

/// Object number `i`, from 0, of studies of kSeries series of kImages images, with two studies a patient.
inline Phantom::Object Usual(int i) {
  int const study = i / (kSeries * kImages);
  return {.patient = study / 2 + 1, .study = study + 1, .series = i / kImages % kSeries + 1, .image = i % kImages + 1};
}

/// What is stored to be measured with is stored without syncs.
inline void Fill(Disk_RootDirectoryFile& root, int objects, Phantom::Object (*place)(int)) {
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  for (int i = 0; i < objects; ++i)
    Store(root, place(i));
  Require(root.Sync() == 0, "syncing");
}

constexpr Dicom_Tag kReferencedFileId{0x0004, std::uint16_t(0x1500)};

/// The one object, as a query tells it: its UIDs and file ID.
inline SCL_QueryIdentifier WhereIs(Disk_RootDirectoryFile& root, Phantom::Object const& object) {
  SCL_QueryIdentifier wanted(SCL_QueryRetrieveLevel::IMAGE);
  wanted.SetStudyInstanceUID(Phantom::StudyUid(object));
  wanted.SetSeriesInstanceUID(Phantom::SeriesUid(object));
  wanted.SetSOPInstanceUID(Phantom::InstanceUid(object));
  wanted.Set(kReferencedFileId, CS_NULL);
  Dicom_Sequence results;
  Require(root.Query(wanted, 1, &results) == 0 && results.GetNItems() == 1, "finding an object");
  wanted.Set(kReferencedFileId, results.Get(0)->Value<Dicom_CS>(kReferencedFileId));
  return wanted;
}

inline std::string PathOf(Disk_RootDirectoryFile& root, Phantom::Object const& object) {
  return Disk_FileID(root.GetFileSetPrefix(), WhereIs(root, object).Value<Dicom_CS>(kReferencedFileId), 0).Path();
}

inline char const* NameOf(Util_Durability durability) {
  return durability == Util_Durability::Full ? "durable" : "relaxed";
}

} // namespace Bench
