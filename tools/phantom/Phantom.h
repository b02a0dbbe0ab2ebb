// Makes DICOM objects out of nothing: slices of a volume in which a shape moves, colour and multi-frame
// images, presentation states and structured reports of patients that don't exist.
//
// What an object holds follows from its description alone, to the byte, whenever it is made. Objects of one
// study agree about patient and study, objects of one series about the series.
//
//     auto msg = Phantom::Make({.kind = Phantom::Kind::MR, .patient = 2, .image = 7});
//     if (Phantom::Write({.series = 3}, "/tmp/a.dcm") == -1) ...
#pragma once

#include <cstdint>
#include <dicom/Dicom_UIDic.h>
#include <dicom/IOD_Msg.h>
#include <memory>
#include <string>
#include <vector>

namespace Phantom {

enum class Kind {
  CT,
  MR,
  US,         // colour, RGB
  MultiFrame, // greyscale frames in one secondary capture object, modality OT
  PR,         // greyscale presentation state
  SR,         // basic text report
};

// Whose names the patients and physicians have, and the Specific Character Set that writes them. Ascii
// objects have no Specific Character Set; in Utf8 ones the scripts take turns.
enum class Charset { Ascii, Latin1, Utf8, Greek, Cyrillic, Japanese, Korean, Chinese };

// Images 1 to `images` of a series in the study of whoever refers to it.
struct Reference {
  Kind kind = Kind::CT;
  int series = 1;
  int images = 3;
};

struct Object {
  Kind kind = Kind::CT;
  // The place, each number from 1. Seed and place, and nothing else, decide the UIDs: two objects of
  // different kinds in one place have the same.
  int patient = 1;
  int study = 1;
  int series = 1;
  int image = 1;
  std::uint64_t seed = 1;
  // Pixels. US ignores `bits` and `is_signed`; a CT of less than 12 bits, an MR of 8 and signed frames are
  // made as asked for, though the standard knows none.
  int size = 64; // rows and columns, 1 to 16384
  int bits = 12; // bits stored, 8 to 16; above 8 they take two bytes
  bool is_signed = false;
  int planar = 0;  // planar configuration of colour: 0 by pixel, 1 by plane
  int frames = 10; // of a MultiFrame object, which has 2^29 pixels at most
  int slices = 50; // of the volume that CT and MR images go through: image slices + 1 is at the start again
  Charset charset = Charset::Latin1;
  // What a PR refers to, an item each; without any the object lacks the sequence.
  std::vector<Reference> references = std::vector<Reference>(1);
  // An SR is complete, and verified by so many observers; their dates aren't in order. 0: not verified.
  int observers = 3;
  // Attributes of this system, absent when empty.
  std::string image_label{};
  std::string series_label{};
  std::string key_image{};
  std::string slice_number{};
  std::string slice_direction{};
  std::string study_body_part{};
};

// The object; null when a number is out of its range.
std::unique_ptr<IOD_Msg> Make(Object const& object);

// What Make puts into the object, for those who ask for it later.
Dicom_LO PatientId(Object const& object);
Dicom_UI StudyUid(Object const& object);
Dicom_UI SeriesUid(Object const& object);
Dicom_UI InstanceUid(Object const& object);
Dicom_UI SopClass(Object const& object);
Dicom_CS Modality(Kind kind);

// The object's file below a directory of objects: pt0001/st001/se001/im00001.dcm.
std::string FileName(Object const& object);
// Makes the object and writes it to a file whose directory is there. 0; or -1, and `*error` (may be null)
// tells why.
int Write(Object const& object, std::string const& path, Dicom_UI const& syntax = Dicom_UIDic::NATIVE_TRANSFER_SYNTAX,
          std::string* error = nullptr);

} // namespace Phantom
