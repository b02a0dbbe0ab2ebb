// Objects that are read, and compressed where that is wanted, while those before them are stored.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <dicom/IOD_Msg.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class ReadAhead {
public:
  struct Object {
    std::unique_ptr<IOD_Msg> object;
    std::string problem; // why there is none
  };

  ReadAhead(std::vector<std::string> const& files, bool compress);
  /// What was read and not asked for is dropped.
  ~ReadAhead();
  ReadAhead(ReadAhead const&) = delete;
  ReadAhead& operator=(ReadAhead const&) = delete;

  /// The object of the next file; each is asked for once.
  Object Next();

private:
  void work();
  bool may_begin() const;
  Object read(std::string const& file) const;

  std::vector<std::string> const& files_;
  bool const compress_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::size_t, Object> ready_;
  std::size_t begun_ = 0, taken_ = 0;
  std::map<std::size_t, std::size_t> sizes_; // of the files that were begun and not taken
  std::size_t bytes_ = 0;                    // of all of them
  bool stops_ = false;
  std::vector<std::thread> workers_;
};
