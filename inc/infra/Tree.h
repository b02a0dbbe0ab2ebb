// A tree of named values, as a configuration gives it. Children keep the order of the file. A tree doesn't
// change once it is made, so threads may read it at the same time.
#pragma once

#include <infra/Disk_Export.h>
#include <infra/RWCString.h>
#include <string>
#include <string_view>
#include <vector>

/// A value and where it stands below the node that was asked.
class DISK_EXPORT Tree_ValueAndPath {
public:
  Tree_ValueAndPath(RWCString value, RWCString path) : value_(std::move(value)), path_(std::move(path)) {}

  RWCString const& GetValue() const { return value_; }
  RWCString const& GetPath() const { return path_; }

private:
  RWCString value_;
  RWCString path_;
};

class DISK_EXPORT Tree_PathAndValueArray {
public:
  explicit Tree_PathAndValueArray(std::vector<Tree_ValueAndPath> entries) : entries_(std::move(entries)) {}

  int GetCount() const { return static_cast<int>(entries_.size()); }
  /// Null for an index out of range; belongs to the array.
  Tree_ValueAndPath const* GetPV(int i) const;

private:
  std::vector<Tree_ValueAndPath> entries_;
};

class DISK_EXPORT Tree_Node {
public:
  /// Making a tree; for the reader of the configuration.
  explicit Tree_Node(std::string name = {}) : name_(std::move(name)) {}
  Tree_Node* AddChild(std::string name); ///< good until the next AddChild of this node
  void SetValue(std::string value) { value_ = std::move(value); }

  std::string const& GetName() const { return name_; }
  std::string const& GetValue() const { return value_; } // empty for a node with children

  /// The child of that name, or null.
  Tree_Node const* GetChild(std::string_view name) const;
  /// The node at a path of names with backslashes between, or null; the empty path is the node itself.
  Tree_Node const* GetNode(std::string_view path) const;

  /// The value of the child `key`, newly allocated, or null if there is none (or none that is a decimal number
  /// of 32 bits). The caller deletes it.
  int* GetInteger(char const* key) const;
  RWCString* GetString(char const* key) const;

  /// The children of the node at `relative_path` with their values, the path of each being its name. Newly
  /// allocated, the caller deletes it; null if there is no such node.
  Tree_PathAndValueArray* GetPathAndValues(char const* relative_path) const;

  /// Whether the whole text is a decimal number of 32 bits.
  static bool ParseInteger(std::string_view text, int& number);

private:
  std::string name_;
  std::string value_;
  std::vector<Tree_Node> children_;
};
