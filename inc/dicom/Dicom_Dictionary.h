#pragma once
#include <dicom/Dicom_Tag.h>
#include <infra/Disk_Export.h>

/// The private attributes of this system. They stand in one block, whose number each message has of its own.
class DISK_EXPORT Dicom_Dictionary {
public:
  static constexpr std::string_view kImplementor = "DISK FILE-SET";
  static constexpr Dicom_Tag KOLBA_EXE_VERSION{0x0009, std::uint8_t(0x01), kImplementor};
  static constexpr Dicom_Tag KOLBA_KEY_IMAGE{0x0009, std::uint8_t(0x02), kImplementor};
  static constexpr Dicom_Tag KOLBA_IMAGE_LABEL{0x0009, std::uint8_t(0x03), kImplementor};
  static constexpr Dicom_Tag KOLBA_SERIES_LABEL{0x0009, std::uint8_t(0x04), kImplementor};
  static constexpr Dicom_Tag KOLBA_SLICE_NUMBER{0x0009, std::uint8_t(0x05), kImplementor};
  static constexpr Dicom_Tag KOLBA_SLICE_DIRECTION{0x0009, std::uint8_t(0x06), kImplementor};
  static constexpr Dicom_Tag KOLBA_STUDY_BODY_PART{0x0009, std::uint8_t(0x07), kImplementor};
  static constexpr Dicom_Tag KOLBA_INPUT_FILE_NAME{0x0009, std::uint8_t(0x08), kImplementor};
  static constexpr Dicom_Tag KOLBA_COMPRESSED_PIXEL_DATA{0x0009, std::uint8_t(0x09), kImplementor};
  static constexpr Dicom_Tag KOLBA_NUMBER_OF_SERIES{0x0009, std::uint8_t(0x10), kImplementor};
  static constexpr Dicom_Tag KOLBA_NUMBER_OF_IMAGES{0x0009, std::uint8_t(0x11), kImplementor};
  static constexpr Dicom_Tag KOLBA_FAKED_STUDY_DATE{0x0009, std::uint8_t(0x12), kImplementor};
  static constexpr Dicom_Tag KOLBA_FAKED_STUDY_TIME{0x0009, std::uint8_t(0x13), kImplementor};
  static constexpr Dicom_Tag KOLBA_LAST_UPDATE_DATE{0x0009, std::uint8_t(0x14), kImplementor};
  static constexpr Dicom_Tag KOLBA_LAST_UPDATE_TIME{0x0009, std::uint8_t(0x15), kImplementor};
  static constexpr Dicom_Tag KOLBA_MULTI_MODALITY{0x0009, std::uint8_t(0x16), kImplementor};
  static constexpr Dicom_Tag KOLBA_PROTECTION_FLAG{0x0009, std::uint8_t(0x17), kImplementor};
  static constexpr Dicom_Tag KOLBA_DICOMDIR_STUDY_STORE_DATE{0x0009, std::uint8_t(0x18), kImplementor};
  static constexpr Dicom_Tag KOLBA_DICOMDIR_STUDY_ACCESS_DATE{0x0009, std::uint8_t(0x19), kImplementor};
  static constexpr Dicom_Tag KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED{0x0009, std::uint8_t(0x1A), kImplementor};
  static constexpr Dicom_Tag KOLBA_DUMMY_DICOMDIR_DATA{0x0009, std::uint8_t(0x1B), kImplementor};
  static constexpr Dicom_Tag KOLBA_FOLDER{0x0009, std::uint8_t(0x20), kImplementor};
  static constexpr Dicom_Tag KOLBA_SOURCE_AE{0x0009, std::uint8_t(0x21), kImplementor};
  static constexpr Dicom_Tag KOLBA_DICOMDIR_PATH{0x0009, std::uint8_t(0x22), kImplementor};

  /// The attribute's name as users write it, or null: "StudyAccessDate".
  static Dicom_Tag const* FindKeyword(std::string_view keyword);
  /// The name of one of the attributes above; empty for others.
  static std::string_view KeywordOf(Dicom_Tag const& tag);
};
