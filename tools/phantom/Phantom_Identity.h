// Who is who: numbers, UIDs, names and dates that follow from the seed and the place of an object.
#pragma once

#include "Phantom.h"

#include <initializer_list>

namespace Phantom {

// The same numbers give the same result, whatever the machine.
std::uint64_t Hash(std::initializer_list<std::uint64_t> numbers);

// What a number or UID is for: one place has several.
enum class Purpose : std::uint64_t {
  Study,
  Series,
  Instance,
  FrameOfReference,
  ProcedureStep,
  Patient,
  StudyDay,
  StudyTime,
  Region,
  Physician,
  Accession,
  Noise,
};
enum class Level { File, Patient, Study, Series, Image };

// A number for the purpose that all objects of the same patient, study, series or image share.
std::uint64_t Number(Object const& object, Purpose purpose, Level level);
// A UID below 2.25 in the same sense.
Dicom_UI MakeUid(Object const& object, Purpose purpose, Level level);

struct Person {
  std::string name;
  bool female = false;
};
Person Patient(Object const& object);
// The `index`-th of the study's physicians.
std::string Physician(Object const& object, int index);
std::string Institution(Charset charset, int patient);
// The value of Specific Character Set; empty for plain ASCII.
std::string_view CharacterSetTerms(Charset charset);

// Dates as YYYYMMDD, times as HHMMSS.FFF, ages as nnnY.
std::string BirthDate(Object const& object);
std::string AgeInStudy(Object const& object);
std::string StudyDate(Object const& object);
std::string TimeAfterStudy(Object const& object, long long milliseconds);
// The date so many days before the study: of calibrations and the like.
std::string DateBeforeStudy(Object const& object, int days);

} // namespace Phantom
