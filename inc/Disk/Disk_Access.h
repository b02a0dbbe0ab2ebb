#pragma once
#include <Disk/Disk_RootDirectoryFile.h>
#include <infra/Disk_Export.h>

#include <memory>

/// Turns a file-set into a list of objects to read one after the other.
///
///     Disk_Access access(root);
///     IOD_Msg* object = nullptr;
///     if (access.OpenQuery(identifier, 1) == 0)
///       while (access.HasMore())
///         if (access.FetchNext(&object) == 0) ...  // the object is the caller's to delete
///
/// The list is a snapshot: what is stored later isn't in it, and fetching what was deleted since fails. No lock is
/// held between calls; an object, like its root, serves one thread at a time.
class DISK_EXPORT Disk_Access {
public:
  /// `root` stays the caller's and outlives this object.
  explicit Disk_Access(Disk_RootDirectoryFile& root) : root_(&root) {}
  virtual ~Disk_Access() = default;
  /// Copies share the list, if there is one, until the next OpenQuery of either.
  Disk_Access(Disk_Access const&) = default;
  Disk_Access& operator=(Disk_Access const&) = default;

  /// Makes the list: one entry per image, whatever the level of the identifier. At image level that is one per SOP
  /// Instance UID of the identifier, whether or not it is in the file-set. Entries left of an earlier list are
  /// dropped. 0, also for an empty list; -1, and then there is no list.
  [[nodiscard]] int OpenQuery(SCL_QueryIdentifier const& identifier, SCL_InformationModel model);
  int GetNItems() const { return list_ ? list_->GetNItems() : 0; }
  int HasMore() const { return GetNItems() > 0; }
  /// The SOP Instance UID of the entry that FetchNext takes next, to name it by when that fails; null at the end.
  Dicom_UI GetNextUID() const;
  /// Takes the next entry off the list and fetches it. 0, and then `*object` is a new message for the caller to own,
  /// unless the list had ended, when it stays as it was; -1 when the object can't be fetched, and the next call goes
  /// on with the next entry.
  [[nodiscard]] int FetchNext(IOD_Msg** object);

private:
  int create_list(SCL_QueryIdentifier const& identifier, SCL_InformationModel model, Disk_RootDirectoryFile& root,
                  Dicom_Sequence** list);

  std::shared_ptr<Dicom_Sequence> list_;
  Disk_RootDirectoryFile* root_;
  SCL_InformationModel model_ = 1;
};
