#include <charconv>
#include <infra/Tree.h>

Tree_ValueAndPath const* Tree_PathAndValueArray::GetPV(int i) const {
  return i >= 0 && i < GetCount() ? &entries_[static_cast<size_t>(i)] : nullptr;
}

Tree_Node* Tree_Node::AddChild(std::string name) { return &children_.emplace_back(std::move(name)); }

Tree_Node const* Tree_Node::GetChild(std::string_view name) const {
  for (Tree_Node const& child : children_)
    if (child.name_ == name) return &child;
  return nullptr;
}

Tree_Node const* Tree_Node::GetNode(std::string_view path) const {
  Tree_Node const* node = this;
  while (node && !path.empty()) {
    size_t const length = path.find('\\');
    node = node->GetChild(path.substr(0, length));
    path.remove_prefix(length == std::string_view::npos ? path.size() : length + 1);
  }
  return node;
}

int* Tree_Node::GetInteger(char const* key) const {
  Tree_Node const* const child = GetChild(key);
  if (!child) return nullptr;
  int number = 0;
  return ParseInteger(child->value_, number) ? new int(number) : nullptr;
}

RWCString* Tree_Node::GetString(char const* key) const {
  Tree_Node const* const child = GetChild(key);
  return child ? new RWCString(child->value_) : nullptr;
}

Tree_PathAndValueArray* Tree_Node::GetPathAndValues(char const* relative_path) const {
  Tree_Node const* const node = GetNode(relative_path ? relative_path : "");
  if (!node) return nullptr;
  std::vector<Tree_ValueAndPath> entries;
  for (Tree_Node const& child : node->children_)
    entries.emplace_back(child.value_, child.name_);
  return new Tree_PathAndValueArray(std::move(entries));
}

bool Tree_Node::ParseInteger(std::string_view text, int& number) {
  char const* const end = text.data() + text.size();
  auto const [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}
