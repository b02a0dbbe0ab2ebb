// Reads the next objects, and compresses them if that is wanted, in threads, while those before them are stored.
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
    std::string problem; // why there is no object
  };

  /// Nothing is read ahead where threads can't be made, and nothing more after an interruption.
  ReadAhead(std::vector<std::string> const& files, bool compress);
  /// Drops what was read and not asked for.
  ~ReadAhead();
  ReadAhead(ReadAhead const&) = delete;
  ReadAhead& operator=(ReadAhead const&) = delete;

  /// The object of the next file; each is asked for once. Throws std::bad_alloc without memory.
  Object Next();
  /// Ends the reading ahead and drops what was read. False if that was done before, or nothing was ever read ahead.
  bool DropOthers();
  /// Reads the object again that Next gave last, or failed to give.
  Object Again();

private:
  // A file whose reading has begun and that Next hasn't taken yet.
  struct Slot {
    Object object;
    std::size_t bytes = 0;
    bool ready = false;
    bool given_back = false; // memory ran out; Next reads the file again
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
  std::vector<Slot> slots_; // file i has slot i modulo their number
  std::size_t begun_ = 0, taken_ = 0;
  std::size_t bytes_ = 0; // of all slots
  bool stops_ = false;
  std::vector<std::thread> workers_;
};
