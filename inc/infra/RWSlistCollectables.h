// A singly linked list of RWCollectable pointers, in the order in which they were appended. The list owns its
// links and not the items: whoever wants them deleted calls clearAndDestroy. append, first, last and entries
// take constant time; nothing recurses, whatever the length.
#pragma once

#include <cstddef>
#include <infra/Disk_Export.h>
#include <infra/RWCollectable.h>

class DISK_EXPORT RWSlistCollectables {
  struct Link {
    RWCollectable* item;
    Link* next;
  };

public:
  RWSlistCollectables() = default;
  virtual ~RWSlistCollectables(); ///< the items stay
  RWSlistCollectables(RWSlistCollectables const&) = delete;
  RWSlistCollectables& operator=(RWSlistCollectables const&) = delete;

  /// Puts `item` at the end and returns it.
  RWCollectable* append(RWCollectable* item);
  RWCollectable* insert(RWCollectable* item) { return append(item); }

  RWCollectable* first() const { return first_ ? first_->item : nullptr; }
  RWCollectable* last() const { return last_ ? last_->item : nullptr; }
  RWCollectable* at(size_t i) const; ///< takes `i` steps; null behind the end
  size_t entries() const { return entries_; }
  bool isEmpty() const { return entries_ == 0; }

  /// Takes this very object out of the list and returns it, or null if it isn't in the list.
  RWCollectable* remove(RWCollectable const* item);

  void clear();           ///< the items stay
  void clearAndDestroy(); ///< deletes the items too

  /// For range-based loops; a list must not change under them, other than by append.
  class const_iterator {
  public:
    explicit const_iterator(Link const* link) : link_(link) {}
    RWCollectable* operator*() const { return link_->item; }
    const_iterator& operator++() {
      link_ = link_->next;
      return *this;
    }
    friend bool operator==(const_iterator const&, const_iterator const&) = default;

  private:
    Link const* link_;
  };
  const_iterator begin() const { return const_iterator(first_); }
  const_iterator end() const { return const_iterator(nullptr); }

private:
  friend class RWSlistCollectablesIterator;
  RWCollectable* remove_after(Link* previous); // null: the first one

  Link* first_ = nullptr;
  Link* last_ = nullptr;
  size_t entries_ = 0;
};

/// Walks a list and may take entries out on the way:
//
///   RWSlistCollectablesIterator next(list);
///   while (RWCollectable* item = next())
///     if (unwanted(item)) delete next.remove();
//
/// Starts before the first entry. The list may change only by append or through this iterator while it is in
/// use.
class DISK_EXPORT RWSlistCollectablesIterator {
public:
  explicit RWSlistCollectablesIterator(RWSlistCollectables& list) : list_(list) {}

  RWCollectable* operator()(); ///< goes to the next entry; null at the end
  RWCollectable* key() const;  ///< the entry it stands on, or null
  RWCollectable* remove();     ///< takes that entry out and returns it, or null
  void reset();                ///< before the first entry again

private:
  RWSlistCollectables& list_;
  RWSlistCollectables::Link* previous_ = nullptr;
  RWSlistCollectables::Link* current_ = nullptr; // good only if on_entry_
  bool on_entry_ = false;
};
