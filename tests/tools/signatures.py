"""What callers compile against: every public operation with the types that they give it, the protected ones (+) as a derived
class has them, what a class of their own has to have (!), and null literals where they leave something out."""
import re

# classes: what each of them has; int is left out as a result, ~ stands for Disk_, two letters for the class of a VR, $ for
# what a list holds
OPERATIONS = """
~FileID: new(); new(char const*, CS, int); new(char const*, char*, int*, int); new(~FileID const&); char* operator char*()
  const; AddComponent(char*); RemoveLastComponent(); CS GetID(); char const* GetFileSetPrefix() const
~File: new(~FileID const&); new(~File const&); ~FileID GetFileID(); char const* GetFileSetPrefix() const; Write(IOD_Msg*, UI,
  UI, UI, bool); Read(IOD_Msg**, int*, int, ~AsyncFile*); CreateDirectoryIfNotPresent(char const*)
~ObjectFile: new(~FileID const&, ~StoreParams); new(~FileID const&); Get(IOD_Msg**, ~AsyncFile*); Store(IOD_Msg*)
Util_File: new(); new(Dicom_Msg&, int*, UI const&, int, std::string*); Write(int); Write(char const*,
  Util_FileSystemInterface*); Write(~StorageStrategy*); UI GetTransferSyntax(); GetFile(char const*, int,
  Util_FileSystemInterface*); IOD_Msg* operator IOD_Msg*(); void SetOriginalBuffer(Dicom_Msg*); UI
  GetRecomendedCommpressedTxForSave(Dicom_Msg const*); Dicom_Msg* BuildMetaInformation(UI, UI, UI)
~StorageStrategy: !Write(void const*, unsigned); !long LSeek(long, int); !bool Flush(); !void InitFD(int); !GetFd(); !bool
  HasPendingData(); !UpdateFromFile(); +int file_descriptor
~FileStorageStrategy: new()
~MemoryStorageStrategy: new(); new(unsigned)
~LockManager: new(); Init(char const*, int)
~Bits: new(); new(int); new(unsigned char const*, int); new(~Bits const&); NBits() const; unsigned char operator[](int); ~Bits
  operator|=(~Bits const&); ~Bits operator^=(~Bits const&); ~Bits operator^=(unsigned char const*); ~Bits operator>>=(int);
  ~Bits operator<<=(int); ~Bits operator>>(int) const; ~Bits operator<<(int) const; void RotateRight(int); void
  RotateLeft(int); void Print(FILE*) const
~DirectoryFile: new(~FileID const&, ~StoreParams, ~DicomDir*); void SetWritingStrategy(~StorageStrategy*); ~StorageStrategy*
  GetWritingStrategy(); void ResetVersionFileStatus(); Lowercase() const; Read(Dicom_Sequence**, int*, IOD_Msg**);
  Write(Dicom_Sequence&); +void MarkDirty(); +IsUpToDate() const; +void ReadFileVersion(); +UpdateFileVersion(); +char*
  FindUniqueFileName(char*) const; +~FileID GenerateFileID(UI const&); +DA GetCurrentDate(); +TM GetTickCount();
  +Dicom_UIDGenerator uid_generator; +long file_version; +int version_file_in_use; +~DicomDir* standard_dicomdir;
  +~StorageStrategy* writing_strategy; +~StoreParams params
~DicomDir: new(); Init(char const*, bool, ~StorageStrategy*); Write(~StorageStrategy*); RefreshOffsetEnd(); SetFileSetID(CS
  const&); SetOffsetOfTheFirstDirectoryRecord(UL const&); UL GetOffsetOfTheFirstDirectoryRecord() const;
  SetOffsetOfTheLastDirectoryRecord(UL const&); SetFileSetConsistencyFlag(US const&); Dicom_TransferSyntax GetTransferSyntax()
~DirectoryRecord: new(IOD_Msg*); new(int, unsigned, unsigned*, Dicom_TransferSyntax const&, int*); IOD_Msg* GetRecordMsg();
  bool IsNew(); void SetNew(bool); bool Changed(); void SetChanged(bool); +ValidateDirectoryRecord(); element ReferencedFileID
  CS; element DirectoryRecordType CS; element OffsetOfTheNextDirectoryRecord UL; element
  OffsetOfReferencedLowerLevelDirectoryEntity UL; element RecordInUseFlag US
~PatientDirectoryRecord: FillPatientRecord(IOD_Msg const&, bool)
~StudyDirectoryRecord: FillStudyRecord(IOD_Msg const&, bool); UpdatePatientDetails(IOD_Msg const&)
~SeriesDirectoryRecord: FillSeriesRecord(IOD_Msg const&, bool)
~InstanceDirectoryRecord: FillInstanceRecord(IOD_Msg const&, bool, bool); AddIconImage(IOD_Msg const*); element
  ReferencedSOPInstanceUIDInFile UI; element ReferencedSOPClassUIDInFile UI; element ReferencedTransferSyntaxInFile UI
~RootDirectoryFile: new(char const*, ~StoreParams, long, int*, ~StorageStrategy*); new(wchar_t const*, ~StoreParams, long,
  int*, ~StorageStrategy*); void SetAutoDeletePar(~AutoDeletePar const&); void SetSupportPar(~SupportPar const&); AutoDelete();
  long FreeSpace(); Store(IOD_Msg*, bool, int, int, char*, int, char*, char*, UI const*); GetOne(SCL_MoveIdentifier const&,
  SCL_InformationModel, IOD_Msg**, ~AsyncFile*); ProtectImages(SCL_MoveIdentifier const&, SCL_InformationModel, UI*);
  UnprotectImages(SCL_MoveIdentifier const&, SCL_InformationModel, UI*); SetStudyCompleted(UI const&); SetStudyAccessed(UI
  const&); ProcessZombieFiles(CToolParseDICOMReport&); ChangePatientsName(LO const&, LO const&, PN const&, LO const&, LO
  const&); ChangeManufacturerParms(LO const&, LO const&, LO const&, LO const&)
~StudyDirectoryFile: new(~FileID, ~StoreParams, ~DicomDir*, unsigned); unsigned GetOffset(); Read(); Write(); Store(IOD_Msg*,
  ~StudyDirectoryRecord*, int*, int*, bool, int, int, char*, int, char*, char*, UI const*);
  Query(SCL_QueryRetrieveLevel::Value, SCL_QueryIdentifier const&, Dicom_Sequence*); GetOne(UI, UI, IOD_Msg**); Delete(UI, UI,
  MXL_SubOperationsReport*, int*, CS&); ProcessZombieFiles(CToolParseDICOMReport&)
~SeriesDirectoryFile: new(~FileID const&, ~StoreParams, ~DicomDir*, unsigned); unsigned GetOffset(); Read(); Write();
  Query(SCL_QueryIdentifier const&, Dicom_Sequence*); GetOne(UI, IOD_Msg**); Store(IOD_Msg*, ~SeriesDirectoryRecord*, int*,
  bool, int, char*, int, char*, char*, UI const*); Delete(UI, MXL_SubOperationsReport*);
  ProcessZombieFiles(CToolParseDICOMReport&)
~Access: new(~RootDirectoryFile&); new(~Access const&); GetNItems() const; HasMore() const; OpenQuery(SCL_QueryIdentifier
  const&, SCL_InformationModel); FetchNext(IOD_Msg**)
~CacheRepository: new(); new(~CacheRepository const&); Construct(); RWWString GetPath(); void SetPath(RWWString const&);
  GetThreshold(); void SetThreshold(int); long FreeSpaceKB(); Store(IOD_Msg*, bool); AutoClean(); AutoCleanPercentage(int);
  GetOne(SCL_MoveIdentifier const&, SCL_InformationModel, IOD_Msg**); AutoCleanMB(long); AutoCleanNStudies(int);
  DeleteStudyByInstanceUID(UI); MarkStudyAsFullyLoaded(UI const&); MarkStudyAsAccessed(UI const&); AutoCleanForStudy(int, CS
  const*); CleanAll(); +bool IsDicomDirValid(); Mutex s_mtxLock; +GetStudiesMetaData(~StudyMetaData*&, int&); +void
  FindUserQuotaSize(); +void FindQuotaSize(); +long FindRepositorySizeKB(); +void FindDiskSizes(unsigned*, unsigned*); +bool
  GetCfgInteger(RWCString const&, int&); +bool GetCfgString(RWCString const&, RWCString&); +RWWString m_path;
  +Dicom_DeIdentifier m_deIdentifier; +i32 m_quotaMB; +i32 m_userQuotaMB; +i32 m_sparePercentage; +i32 m_sizeKB; +i32
  m_threshold; +bool m_sizeStale; +i32 m_maxStudies; +i32 m_spaceFactor
~StudyMetaData: new(); GetGrade(); bool operator<(~StudyMetaData const&); i32 m_sizeKB; DT m_storeDate; DT m_accessDate; UI
  m_studyUID; i32 m_gradeCount; i32[15] m_grades; i32[15] m_weights
~CacheRepositoryGraderBase: !void GradeStudies(~StudyMetaData*, int); !GetWeight(); void AddGrade(~StudyMetaData*, int)
~CacheRepository_GradeTable: new(RWCString const&); GetGrade(int); void Load()
~CacheRepositoryCleanGradeFactory: ~CacheRepositoryCleanGradeFactory* GetInstance(); CalculateThreshold(int); void
  RegisterGrader(~CacheRepositoryGraderBase*); void UnregisterGrader(~CacheRepositoryGraderBase*); void
  GradeStudies(~StudyMetaData*, int)
Dicom_Type: bool operator==(Dicom_Type const&) const; bool operator!=(Dicom_Type const&) const; Match(Dicom_Type const&) const;
  MatchRetrieve(Dicom_Type const&, Dicom_Type**) const
Dicom_Msg: new(); new(Dicom_Msg const&); new(int, unsigned, unsigned*, Dicom_TransferSyntax const&, int*, int); Dicom_Msg*
  Clone(); new(char*, unsigned, int, int*, int); Update(Dicom_Msg const&, bool, bool); Set(Dicom_Tag const&, Dicom_Type*);
  Remove(Dicom_Tag const&); Add(ME*, int); GetNElements(); Dump(char*, unsigned); unsigned GetDumpLen(); unsigned
  GetDumpLen(Dicom_TransferSyntax const&, int, SCompressionParms); unsigned GetDumpLen(UI, int, SCompressionParms); Dump(char*,
  unsigned, Dicom_TransferSyntax const&, int, void*)
Dicom_DA: DA GetCurrentDate(); new(int, int, int)
Dicom_TM: TM GetTickCount(); new(int, int, int)
Dicom_DT: new(DA const&, TM const&, int*); new(DA const&, int, int, double, int*)
SCL_QueryRspIdentifier: new(SCL_QueryRetrieveLevel::Value, int*); SCL_QueryRetrieveLevel::Value GetQueryRetrieveLevel()
SCL_MoveIdentifier: new(SCL_QueryRetrieveLevel::Value, int*)
CToolParseDICOMReport: !ProcessFile(RWCString); !ProcessFolder(RWCString); ParseDirectory(RWCString, int)
Klb_FileSystemUtils: long GetDirSize(RWWString const&); FindDiskSizes(RWWString const&, unsigned*, unsigned*);
  GetFreeSpace(char const*, double*)
~ObjectFile|~StudyDirectoryFile|~SeriesDirectoryFile: ChangePatientsName(PN const&, LO const&, LO const&);
  ChangeManufacturerParms(LO const&, LO const&)
~LockManager|~StudyDirectoryFile: LockShared(); UnlockShared(); LockExclusive(); UnlockExclusive()
~RootDirectoryFile|~CacheRepository: Query(SCL_QueryIdentifier const&, SCL_InformationModel, Dicom_Sequence*);
  Delete(SCL_MoveIdentifier const&, SCL_InformationModel, MXL_SubOperationsReport*, SCL_ResponseStatus&)
~PatientDirectoryRecord|~StudyDirectoryRecord|~SeriesDirectoryRecord|~InstanceDirectoryRecord: new(); new(IOD_Msg*, int&);
  new(int, unsigned, unsigned*, Dicom_TransferSyntax const&, int*)
~RecordList<~PatientDirectoryRecord>|~RecordList<~StudyDirectoryRecord>|~RecordList<~SeriesDirectoryRecord>|~RecordList<~InstanceDirectoryRecord>:
  new(); ReadRecords(int, Dicom_TransferSyntax const&, unsigned); AddNewRecord($*, unsigned); WriteRecords(int,
  Dicom_TransferSyntax const&, unsigned, ~StorageStrategy*); CountRecordsInUse()
"""
REST = r"""
void literals(Disk_RootDirectoryFile& root, Disk_DicomDir& dir, Disk_SeriesDirectoryFile& file, IOD_Msg& msg, Dicom_Type& value) {
  int error = 0;
  Disk_RootDirectoryFile other("/d", 8, 0, &error, 0);
  Disk_DirectoryRecord record(nullptr);
  error = root.Store(&msg, false, 0, 0, 0, 0, 0, 0, 0) + file.Delete(UI_NULL, 0), dir.Init("/d", false, 0), dir.Write(nullptr);
  root.SetWritingStrategy(0), root.SetSupportPar({0, 1, 0}), root.SetAutoDeletePar({1, 2}), msg.Set(Dicom_Tag(8, 5), nullptr);
  bool const same = value == CS_NULL || UI_NULL != value || UI_NULL == CS_NULL || UL_NULL == IS_NULL || OB_NULL == OW_NULL;
  error += same + Dicom_IS(0, true) + int(UL_NULL) + US_NULL + Disk_StudyDirectoryRecord::dummy_data_reservoir[99] +
          Dicom_DT(DA_NULL, 0, 0, 0.0, 0).IsEmpty() + Disk_FileID(0, CS_NULL, 0).RemoveLastComponent();
}
int main() {
  IOD_Msg msg;
  Disk_MemoryStorageStrategy strategy(16);
  int status = 0;
  bool const empty = msg.GetPixelData() == OW_NULL;
  msg.SetPixelData(Dicom_OB("ab", 2, 1, nullptr));
  Util_File file(msg, &status, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, 2, nullptr);
  return empty && msg.GetPixelData().GetLength() == 2 && file.Write(&strategy) == 0 && SCL_ResponseStatus(4) == 4 &&
         Dicom_DA::GetCurrentDate() != DA_NULL && Dicom_TM::GetTickCount() != TM_NULL ? 0 : 1;
}
"""

def parsed(owner, text):
    """The result, name and types of what `text` tells, and whether they are for a class that is derived from `owner`."""
    text = re.sub(r"\b([A-Z]{2})\b", r"Dicom_\1", text).replace("i32", "std::int32_t").replace("$", owner[16:-1])
    result, name, types, const = re.fullmatch(r"[+!]?(?:(.+?) )??(operator.+?|\w+)(?:\((.*)\)( const)?)?", text).groups()
    return result or "int", name, types, const or "", text[0] == "+"

def operation(place, owner, text):
    """The function that does it with an `owner`."""
    result, name, types, const, is_protected = parsed(owner, text)
    given = types.split(", ") if types else []
    arguments = "" if types is None else "(" + ", ".join(f"a{i}" for i in range(len(given))) + ")"
    call = f"new {owner}{arguments}" if name == "new" else f"self.{name}{arguments}"
    does = f"static_assert(std::is_same_v<std::remove_cvref_t<decltype({call})>, {result}>);" * (name != "new")
    does += f" static_cast<void>({call});" * (types is not None)
    own = f"Own{place}" if is_protected else owner
    takes = [f"{own}{const}& self"] * (name != "new") + [f"{type} a{i}" for i, type in enumerate(given)]
    inside = f"struct {own} : {owner} {{ static void f({', '.join(takes)}); }};\n" * is_protected
    return f"{inside}void {f'{own}::f' if is_protected else f'f{place}'}({', '.join(takes)}) {{ {does} }}\n"

def overriding(place, owner, texts):
    """A class that has all that has to be its own."""
    heads = [parsed(owner, text) for text in texts]
    own = "".join(f"{result} {name}({types}) override {{ throw 0; }} " for result, name, types, _, _ in heads)
    return f"struct Of{place} : {owner} {{ {own} }};\nstatic_assert(!std::is_abstract_v<Of{place}>);\n" if heads else ""

def source(headers):
    """A program that has to be compiled, linked and run with nothing but the installed package."""
    parts = [f"#include <{header}>\n" for header in headers]
    for row in re.sub(r"\n +", " ", OPERATIONS).strip().replace("~", "Disk_").split("\n"):
        owners, texts = row.split(": ", 1)
        texts = re.sub(r"element (\w+) (\w+)", r"\2 Get\1() const; int Set\1(\2 const&); int Remove\1()", texts).split("; ")
        for owner in owners.split("|"):
            parts += [operation(len(parts) + i, owner, text) for i, text in enumerate(texts)]
            parts += [overriding(len(parts), owner, [text for text in texts if text[0] == "!"])]
    return "".join(parts) + REST
