// The DICOM JSON model: an object whose names are tags, eight hexadecimal digits each.
#pragma once

#include <dicom/Dicom_Msg.h>
#include <nlohmann/json.hpp>

nlohmann::json DicomJson(Dicom_Msg const& msg);
// One line, whatever bytes a text holds.
std::string JsonText(nlohmann::json const& json);
