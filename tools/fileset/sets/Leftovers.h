// Files that a delete leaves on the disk. The library counts an object as deleted when its record is gone, even if its
// file can't be removed. Patient data must not stay unnoticed, so commands look afterwards.
#pragma once

#include "sets/FileSet.h"
#include "sets/Search.h"

#include <map>
#include <string>
#include <vector>

class Disk_PassedOver;
class Report;

// The path of the file that a record names; empty if it names none.
std::string PathOf(Dicom_Msg const& record, std::string const& directory);
// The folder of a study's or series' record; empty in the standard structure, whose records name none.
std::string FolderOf(Dicom_Msg const& record, std::string const& directory);

// Study Instance UIDs, and the folder of each in a file-set of the private structure.
using StudyFolders = std::map<std::string, std::string>;
// From rows with Referenced File IDs.
StudyFolders FoldersOf(Search::Rows const& studies, std::string const& directory);

// Reports each of these files that still exists, and each file in or below the folder of a deleted study or series.
// `folder` may be empty. `passed` is what the delete went on past.
void ReportLeft(std::vector<std::string> const& files, std::string const& folder, Disk_PassedOver const& passed,
                Report& report);
