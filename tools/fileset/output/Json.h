// What commands print with --json.
#pragma once

#include <dicom/Dicom_Msg.h>
#include <nlohmann/json.hpp>

class Report;

// The DICOM JSON model: an object whose names are tags, eight hexadecimal digits each.
nlohmann::json DicomJson(Dicom_Msg const& msg);
// One line, whatever bytes a text holds.
std::string JsonText(nlohmann::json const& json);
// An object for each failure: what failed, under the name `what`, and its "cause".
nlohmann::json FailuresJson(Report const& report, char const* what);
