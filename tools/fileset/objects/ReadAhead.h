// Objects that are read, and compressed where that is wanted, while those before them are stored.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <dicom/IOD_Msg.h>
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

  /// Where threads can't be made, nothing is read ahead. After an interruption nothing more is either.
  ReadAhead(std::vector<std::string> const& files, bool compress);
  /// What was read and not asked for is dropped.
  ~ReadAhead();
  ReadAhead(ReadAhead const&) = delete;
  ReadAhead& operator=(ReadAhead const&) = delete;

  /// The object of the next file; each is asked for once. Throws std::bad_alloc without memory.
  Object Next();
  /// Ends the reading ahead and drops what was read. False: that was done before, or never anything read ahead.
  bool DropOthers();
  /// The object that Next gave last, or couldn't, read again.
  Object Again();

private:
  // What becomes of a file that was begun and not taken.
  struct Slot {
    Object object;
    std::size_t bytes = 0;
    bool ready = false;
    bool given_back = false; // there wasn't the memory for it beside the others
  };

  void start(std::size_t workers);
  void stop();
  void work();
  bool ends() const;
  bool may_begin() const;
  void fill(Slot& slot, std::string const& file) const noexcept;
  Object read(std::string const& file) const;

  std::vector<std::string> const& files_;
  bool const compress_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Slot> slots_; // a file's is that of its number, modulo their count
  std::size_t begun_ = 0, taken_ = 0;
  std::size_t bytes_ = 0; // of all slots
  bool stops_ = false;
  std::vector<std::thread> workers_;
};
