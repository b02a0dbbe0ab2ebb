#pragma once
#include <dicom/IOD_Msg.h>
#include <infra/Disk_Export.h>

#include <functional>

class Crypt_EncryptionInterface;

/// Takes out of an object what must not enter a repository. Unless a program says how, objects are left as they are.
class DISK_EXPORT Dicom_DeIdentifier {
public:
  /// What is done to an object: 0, or -1 to refuse it.
  using Process = std::function<int(IOD_Msg&)>;

  /// The encryption is for processes that keep what they take out; it may be null and stays the caller's.
  explicit Dicom_DeIdentifier(Crypt_EncryptionInterface* encryption) : encryption_(encryption) {}
  /// For the whole process; an empty function brings the default back. Not while objects are processed.
  static void SetProcess(Process process);

  /// 0, or -1: the object must not be stored.
  [[nodiscard]] int Process_for_Push(IOD_Msg* msg) const;
  Crypt_EncryptionInterface* GetEncryption() const { return encryption_; }

private:
  Crypt_EncryptionInterface* encryption_;
};
