// One allocation after another fails: nothing is thrown, and what a step couldn't make has its line and its code.
#include "reliability/Allocations.h"
#include "support/FileSetFixture.h"

#include <Disk/Disk_Error.h>

using MemoryTest = BothStructuresTest;
FOR_BOTH_STRUCTURES(MemoryTest);

TEST_P(MemoryTest, WhatCantBeMadeHasItsLine) {
  using Step = std::function<int()>;
  auto const msg = Example(), report = Phantom::Make({.kind = Phantom::Kind::SR});
  ASSERT_EQ(Store(*Open(), *msg), 0);
  auto const series = [&] {
    return
        [&, made = std::make_shared<Disk_SeriesDirectoryRecord>()] { return made->FillSeriesRecord(*msg, structure); };
  };
  auto const instance = [&] {
    auto const made = std::make_shared<Disk_InstanceDirectoryRecord>();
    return [&, made] { return made->FillInstanceRecord(*report, structure, true); };
  };
  auto const query = [&](SCL_QueryRetrieveLevel::Value level) -> std::function<Step()> {
    SCL_QueryIdentifier identifier(level);
    identifier.SetStudyInstanceUID(msg->GetStudyInstanceUID());
    identifier.SetSOPInstanceUID(UI_NULL);
    return [=, this] {
      return [=, root = std::shared_ptr(Open()), results = std::make_shared<Dicom_Sequence>()] {
        return root->Query(identifier, 1, results.get());
      };
    };
  };
  std::tuple<std::function<Step()>, char const*, int> const cases[] = {
      {series, "Failed allocating memory for series record.", DISK_ERROR_MEMORY},
      {series, "Disk_SeriesDirectoryRecord(): Can't add element.", DISK_ERROR_MEMORY},
      {instance, "failed in dumping ConceptNameCodeSequence", DISK_ERROR_MEMORY},
      {instance, "AddContentSequence: allocation failure", DISK_ERROR_MEMORY},
      {query(STUDY), "query_record: Can't create query response identifier.", DISK_ERROR_MEMORY},
      {query(STUDY), "query_record: Can't allocate message element.", DISK_ERROR_MEMORY},
      {query(STUDY), structure ? "Failed constructing the record." : "Can't create patient directory record.",
       DISK_ERROR_MEMORY},
      {query(STUDY), structure ? "out of memory." : "Can't create study directory record.",
       structure ? DISK_ERROR_MEMORY : DISK_ERROR_STUDY_RECORD},
      {query(IMAGE), "Query(): Can't allocate message element.", DISK_ERROR_MEMORY},
      {query(IMAGE), "Query(): Can't create a message element.", DISK_ERROR_MEMORY},
  };
  for (auto const& [prepare, line, code] : cases) {
    ASSERT_EQ(prepare()(), 0) << "and what is made once only is there";
    bool found = false;
    for (int ordinal = 1; ordinal == 1 || CountedAllocations() >= ordinal - 1; ++ordinal) {
      Step const step = prepare();
      LogCapture log(3);
      FailAllocations(ordinal, true);
      ArmAllocations(true);
      step();
      ArmAllocations(false);
      found = found || (log.Count(3, line) && KlbGError.Get() == code);
    }
    EXPECT_TRUE(found) << line;
  }
}
