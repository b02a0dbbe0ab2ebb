#include <dicom/Dicom_NumberTypes.h>
#include <dicom/Dicom_OtherTypes.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/IOD_Image.h>

// Inline in their headers they would be made, with all their classes, by each source that includes one.

Dicom_AE const AE_NULL;
Dicom_AS const AS_NULL;
Dicom_CS const CS_NULL;
Dicom_DA const DA_NULL;
Dicom_DS const DS_NULL;
Dicom_DT const DT_NULL;
Dicom_IS const IS_NULL;
Dicom_LO const LO_NULL;
Dicom_LT const LT_NULL;
Dicom_PN const PN_NULL;
Dicom_SH const SH_NULL;
Dicom_ST const ST_NULL;
Dicom_TM const TM_NULL;
Dicom_UC const UC_NULL;
Dicom_UI const UI_NULL;
Dicom_UR const UR_NULL;
Dicom_UT const UT_NULL;

Dicom_AT const AT_NULL;
Dicom_FD const FD_NULL;
Dicom_FL const FL_NULL;
Dicom_SL const SL_NULL;
Dicom_SS const SS_NULL;
Dicom_SV const SV_NULL;
Dicom_UL const UL_NULL;
Dicom_US const US_NULL;
Dicom_UV const UV_NULL;

Dicom_OB const OB_NULL;
Dicom_OD const OD_NULL;
Dicom_OF const OF_NULL;
Dicom_OL const OL_NULL;
Dicom_OV const OV_NULL;
Dicom_OW const OW_NULL;
Dicom_UN const UN_NULL;

Dicom_CS const IOD_Image::PATIENT{"PATIENT"};
Dicom_CS const IOD_Image::STUDY{"STUDY"};
Dicom_CS const IOD_Image::SERIES{"SERIES"};
Dicom_CS const IOD_Image::IMAGE{"IMAGE"};
Dicom_CS const IOD_Image::PRESENTATION{"PRESENTATION"};
Dicom_CS const IOD_Image::SR_DOCUMENT{"SR DOCUMENT"};
Dicom_CS const IOD_Image::PRIVATE_CS{"PRIVATE"};
Dicom_CS const IOD_Image::PR{"PR"};
Dicom_CS const IOD_Image::SR{"SR"};
Dicom_CS const IOD_Image::DERIVED{"DERIVED"};
Dicom_CS const IOD_Image::SECONDARY{"SECONDARY"};
Dicom_CS const IOD_Image::ITINERARY{"ITINERARY"};
Dicom_CS const IOD_Image::CINE{"CINE"};
Dicom_CS const IOD_Image::Y{"Y"};
Dicom_CS const IOD_Image::N{"N"};
Dicom_CS const IOD_Image::VERIFIED{"VERIFIED"};

Dicom_UI const Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN{"1.2.840.10008.1.2"};
Dicom_UI const Dicom_UIDic::EXPLICIT_VR_LITTLE_ENDIAN{"1.2.840.10008.1.2.1"};
Dicom_UI const Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN{"1.2.840.10008.1.2.2"};
Dicom_UI const Dicom_UIDic::DEFLATED_EXPLICIT_VR_LITTLE_ENDIAN{"1.2.840.10008.1.2.1.99"};
Dicom_UI const Dicom_UIDic::JPEG_LS_LOSSLESS{"1.2.840.10008.1.2.4.80"};
Dicom_UI const Dicom_UIDic::NATIVE_TRANSFER_SYNTAX{"1.2.840.10008.1.2.1"};
Dicom_UI const Dicom_UIDic::BASIC_DIRECTORY_STORAGE{"1.2.840.10008.1.3.10"};
