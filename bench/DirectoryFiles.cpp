// A directory file of n records: read, one SOP Instance UID found, written again; beside the bare file I/O of the same
// bytes, and the toolkit doing the same work.
#include "Bench.h"
#include "Phantom.h"

#include "Disk/structure/Disk_RecordIO.h"

#include <Disk/Disk_DirectoryFile.h>
#include <Disk/Disk_InstanceDirectoryRecord.h>
#include <infra/Util_FileSystem.h>

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <malloc.h>

namespace {

class File : public Disk_DirectoryFile {
public:
  explicit File(std::string const& folder)
      : Disk_DirectoryFile(Disk_FileID(folder.c_str(), Dicom_CS("DIRFILE"), 0), Disk_StoreParams(), nullptr) {}

  void Load(Disk_RecordList<Disk_InstanceDirectoryRecord>& records) {
    Dicom_Sequence* sequence = nullptr;
    IOD_Msg* msg = nullptr;
    int found = 0;
    Bench::Require(Read(&sequence, &found, &msg) == 0 && found, "reading");
    std::unique_ptr<IOD_Msg> const owner(msg);
    Bench::Require(Disk_TakeRecords(*sequence, records, "", GetFileID().Path(), false) == 0, "taking the records");
  }

  void Save(Disk_RecordList<Disk_InstanceDirectoryRecord> const& records) {
    Dicom_Sequence sequence;
    Bench::Require(Disk_AppendRecords(records, sequence, "") == 0 && Write(sequence) == 0, "writing");
  }
};

constexpr Dicom_Tag kSopInstanceUid{0x0008, std::uint16_t(0x0018)};

std::string Uid(int i) { return "2.25.1234567890123456789012345678." + std::to_string(i); }

constexpr int kTurns = 21;

void Make(std::string const& folder, int n) {
  Disk_RecordList<Disk_InstanceDirectoryRecord> records;
  auto const object = Phantom::Make({.size = 64});
  for (int i = 0; i < n; ++i) {
    object->SetSOPInstanceUID(Dicom_UI(Uid(i)));
    object->SetImageNumber(Dicom_IS(i));
    auto record = std::make_unique<Disk_InstanceDirectoryRecord>();
    Bench::Require(record->FillInstanceRecord(*object, false, false) == 0, "filling a record");
    record->SetReferencedFileID(Dicom_CS("SA100000\\S3000000\\I" + std::to_string(1000000 + i)));
    records.append(record.release());
  }
  File(folder).Save(records);
}

void Ours(std::string const& folder, int n) {
  Disk_RecordList<Disk_InstanceDirectoryRecord> records;
  File file(folder);
  file.Load(records);
  auto const any = [](Disk_InstanceDirectoryRecord const&) { return true; };
  Bench::Require(records.Find(kSopInstanceUid, Uid(n - 1), any) != nullptr, "finding");
  file.Save(records);
}

void Bare(std::string const& folder) {
  std::string const path = folder + "/DIRFILE", temporary = path + ".tmp";
  auto const bytes = Util_FileSystem::ReadWholeFile(path.c_str());
  Bench::Require(bytes != nullptr, "reading bytes");
  std::string_view const parts[] = {{bytes->data(), bytes->size()}};
  Bench::Require(Util_FileSystem::WriteNewFile(temporary.c_str(), parts, true) == 0, "writing bytes");
  Bench::Require(std::rename(temporary.c_str(), path.c_str()) == 0, "renaming");
}

void ToolkitsWork(std::string const& folder, int n) {
  std::string const path = folder + "/DIRFILE", temporary = path + ".tmp";
  DcmFileFormat file;
  Bench::Require(file.loadFile(path.c_str()).good() && file.loadAllDataIntoMemory().good(), "the toolkit's reading");
  DcmSequenceOfItems* sequence = nullptr;
  Bench::Require(file.getDataset()->findAndGetSequence(DCM_DirectoryRecordSequence, sequence).good(), "its sequence");
  std::string const wanted = Uid(n - 1);
  bool found = false;
  OFString uid;
  for (DcmObject* item = nullptr; (item = sequence->nextInContainer(item)) != nullptr;) {
    auto* record = dynamic_cast<DcmItem*>(item);
    if (record && record->findAndGetOFString(DCM_SOPInstanceUID, uid).good() && uid == wanted) found = true;
  }
  Bench::Require(found, "the toolkit's finding");
  Bench::Require(file.saveFile(temporary.c_str(), EXS_LittleEndianExplicit).good(), "the toolkit's writing");
  Bench::Require(std::rename(temporary.c_str(), path.c_str()) == 0, "renaming");
}

} // namespace

void Bench::DirectoryFiles(Scope const& scope) {
  Util_FileSystem::SetDurability(Util_Durability::Full);
  OFLog::configure(OFLogger::OFF_LOG_LEVEL);
  for (int const n : scope.quick ? std::vector{1000} : std::vector{1000, 10000}) {
    Progress("a directory file of " + std::to_string(n) + " records");
    Folder const folder(scope.base);
    Make(folder.Path(), n);
    Pair const took = MedianOfTurns(
        kTurns, [&] { Bare(folder.Path()); }, [&] { Ours(folder.Path(), n); });
    Report("directory file", "records", "bare", n, took.first / n, "us per record");
    Report("directory file", "records", "ours", n, took.second / n, "us per record");
    Report("directory file", "records", "ours beside bare", n, took.difference / n, "us per record");
    // the toolkit syncs nothing
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    std::filesystem::create_directory(folder.Path() + "/RELAXED");
    double const relaxed = MedianOf(kTurns, [&] { Ours(folder.Path(), n); });
    Util_FileSystem::SetDurability(Util_Durability::Full);
    Report("directory file", "records", "ours, not synced", n, relaxed / n, "us per record");
    Report("directory file", "records", "toolkit", n, MedianOf(7, [&] { ToolkitsWork(folder.Path(), n); }) / n,
           "us per record");
    Disk_RecordList<Disk_InstanceDirectoryRecord> records;
    std::size_t const before = mallinfo2().uordblks + mallinfo2().hblkhd;
    File(folder.Path()).Load(records);
    Report("directory file", "heap", "ours", n, double(mallinfo2().uordblks + mallinfo2().hblkhd - before) / n,
           "bytes per record");
  }
}
