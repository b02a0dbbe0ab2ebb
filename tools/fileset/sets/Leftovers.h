// What a delete leaves on the disk. For the library an object whose file can't be removed is deleted, as its record is
// gone. Patient data must not stay there unnoticed, so commands look afterwards.
#pragma once

#include "sets/FileSet.h"
#include "sets/Search.h"

#include <map>
#include <string>
#include <vector>

class EngineLog;
class Report;

// The path of what a record names; empty if it names nothing.
std::string PathOf(Dicom_Msg const& record, std::string const& directory);
// The folder of a study's or series' record; empty in the standard structure, whose records name none.
std::string FolderOf(Dicom_Msg const& record, std::string const& directory);

// Study Instance UIDs, and the folder of each in a file-set of the private structure.
using StudyFolders = std::map<std::string, std::string>;
// From rows with Referenced File IDs.
StudyFolders FoldersOf(Search::Rows const& studies, std::string const& directory);

// Reports each of these files that is still there, and each file in the folder of a deleted study or series, or below.
// There needn't be a folder.
void ReportLeft(std::vector<std::string> const& files, std::string const& folder, EngineLog const& log, Report& report);
