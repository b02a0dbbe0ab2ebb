#pragma once
#include "Phantom.h"

#include <dicom/SCL_Identifier.h>

/// The study, series or object that one belongs to, by the UIDs of that level.
inline SCL_MoveIdentifier Named(SCL_QueryRetrieveLevel::Value level, Phantom::Object const& object) {
  int error = 0;
  SCL_MoveIdentifier identifier(level, &error);
  identifier.SetStudyInstanceUID(Phantom::StudyUid(object));
  if (level >= SCL_QueryRetrieveLevel::SERIES) identifier.SetSeriesInstanceUID(Phantom::SeriesUid(object));
  if (level >= SCL_QueryRetrieveLevel::IMAGE) identifier.SetSOPInstanceUID(Phantom::InstanceUid(object));
  return identifier;
}
