#include <infra/RWSlistCollectables.h>

RWSlistCollectables::~RWSlistCollectables() { clear(); }

RWCollectable* RWSlistCollectables::append(RWCollectable* item) {
  Link* const link = new Link{item, nullptr};
  (last_ ? last_->next : first_) = link;
  last_ = link;
  ++entries_;
  return item;
}

RWCollectable* RWSlistCollectables::at(size_t i) const {
  if (i >= entries_) return nullptr;
  Link const* link = first_;
  while (i-- > 0)
    link = link->next;
  return link->item;
}

RWCollectable* RWSlistCollectables::remove(RWCollectable const* item) {
  Link* previous = nullptr;
  for (Link* link = first_; link; previous = link, link = link->next)
    if (link->item == item) return remove_after(previous);
  return nullptr;
}

RWCollectable* RWSlistCollectables::remove_after(Link* previous) {
  Link*& place = previous ? previous->next : first_;
  Link* const link = place;
  place = link->next;
  if (last_ == link) last_ = previous;
  --entries_;
  RWCollectable* const item = link->item;
  delete link;
  return item;
}

void RWSlistCollectables::clear() {
  while (first_)
    remove_after(nullptr);
}

void RWSlistCollectables::clearAndDestroy() {
  while (first_)
    delete remove_after(nullptr);
}

RWCollectable* RWSlistCollectablesIterator::operator()() {
  if (on_entry_) previous_ = current_;
  current_ = previous_ ? previous_->next : list_.first_;
  on_entry_ = current_ != nullptr;
  return key();
}

RWCollectable* RWSlistCollectablesIterator::key() const { return on_entry_ ? current_->item : nullptr; }

RWCollectable* RWSlistCollectablesIterator::remove() {
  if (!on_entry_) return nullptr;
  on_entry_ = false;
  return list_.remove_after(previous_);
}

void RWSlistCollectablesIterator::reset() {
  previous_ = nullptr;
  on_entry_ = false;
}
