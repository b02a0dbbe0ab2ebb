// Objects in files, and what a medium's records say of them.
#pragma once

#include "support/DicomdirWalk.h"

#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>

/// Null, and a failure of the test, when it can't be read.
inline std::unique_ptr<IOD_Msg> ReadObject(std::string const& path) {
  Util_File file;
  EXPECT_EQ(file.GetFile(path.c_str(), 0, nullptr), 0) << path;
  std::unique_ptr<IOD_Msg> object(file);
  EXPECT_TRUE(object) << path << ": " << file.GetError();
  return object;
}

inline void SaveObject(IOD_Msg& object, std::string const& path) {
  int status = 0;
  Util_File file(object, &status, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, 2, nullptr);
  EXPECT_EQ(file.Write(path.c_str(), nullptr), 0) << path;
}

/// The SOP Instance UIDs of all files below a folder.
inline std::set<std::string> UidsBelow(std::string const& folder) {
  std::set<std::string> uids;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(folder))
    if (entry.is_regular_file()) uids.insert(ReadObject(entry.path())->GetSOPInstanceUID().GetText());
  return uids;
}

/// In the native syntax.
inline std::string Dumped(Dicom_Msg const& msg) {
  std::string bytes(msg.GetDumpLen(), '\0');
  EXPECT_EQ(msg.Dump(bytes.data(), unsigned(bytes.size())), int(bytes.size()));
  return bytes;
}

/// The records of a standard DICOMDIR lead to objects of these SOP Instance UIDs, each to the file of its own.
inline void ExpectMedium(std::string const& folder, std::set<std::string> const& uids) {
  DicomdirWalk const walk(folder + "/DICOMDIR");
  EXPECT_EQ(walk.problems, std::vector<std::string>());
  std::set<std::string> found;
  for (DicomdirWalk::Record const* record : walk.Level(3)) {
    std::string path = record->Text(0x00041500), uid = record->Text(0x00041511);
    std::replace(path.begin(), path.end(), '\\', '/');
    auto const object = ReadObject(folder + "/" + path);
    EXPECT_TRUE(object && object->GetSOPInstanceUID().GetText() == uid) << path << " isn't " << uid;
    found.insert(uid);
  }
  EXPECT_EQ(found, uids);
}
