#pragma once

/// While one lives, DCMTK logs nothing from this thread. Its log belongs to the whole process: a program that
/// uses DCMTK itself keeps what its own threads log.
class GDS_Silence {
public:
  GDS_Silence();
  ~GDS_Silence();
  GDS_Silence(GDS_Silence const&) = delete;
  GDS_Silence& operator=(GDS_Silence const&) = delete;
};
