// The parts of an object. Each function adds what one part of it consists of; Make calls those of its kind.
#pragma once

#include "Phantom.h"

namespace Phantom {

// Whom, what and where: what all kinds have.
void AddPatient(Dicom_Msg& msg, Object const& object);
void AddStudy(Dicom_Msg& msg, Object const& object);
void AddSeries(Dicom_Msg& msg, Object const& object);
void AddEquipment(Dicom_Msg& msg, Object const& object);
// SOP class, dates and numbers of the object itself.
void AddInstance(Dicom_Msg& msg, Object const& object);
void AddOwnAttributes(IOD_Msg& msg, Object const& object);

// One kind each, pixels included.
void AddCt(Dicom_Msg& msg, Object const& object);
void AddMr(Dicom_Msg& msg, Object const& object);
void AddUs(Dicom_Msg& msg, Object const& object);
void AddMultiFrame(Dicom_Msg& msg, Object const& object);
void AddPresentationState(Dicom_Msg& msg, Object const& object);
void AddReport(Dicom_Msg& msg, Object const& object);

// The part of the body that a study shows.
struct Region {
  char const* body_part; // as Body Part Examined has it
  char const* name;
  char const* code; // SNOMED
};
Region const& RegionOf(Object const& object);

} // namespace Phantom
