#include "CfgReader.h"
#include <exception>
#include <new>
#include <sstream>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

namespace {

// The YAML parser recurses, so that the depth has to be held down while it runs.
constexpr size_t max_depth = 64;

int line_of(YAML::Mark const& mark) { return mark.is_null() ? 0 : mark.line + 1; }

class Builder : public YAML::EventHandler {
public:
  explicit Builder(CfgItem& top) : top_(top) {}

  void OnDocumentStart(YAML::Mark const&) override {}
  void OnDocumentEnd() override {}
  void OnNull(YAML::Mark const& mark, YAML::anchor_t) override { value(mark, CfgItem::Null, {}); }
  void OnAlias(YAML::Mark const& mark, YAML::anchor_t) override { value(mark, CfgItem::Other, {}); }
  void OnSequenceStart(YAML::Mark const& mark, std::string const&, YAML::anchor_t, YAML::EmitterStyle::value) override {
    open(mark, value(mark, CfgItem::Other, {}));
  }
  void OnSequenceEnd() override { open_.pop_back(); }
  void OnMapStart(YAML::Mark const& mark, std::string const&, YAML::anchor_t, YAML::EmitterStyle::value) override {
    open(mark, value(mark, CfgItem::Map, {}));
  }
  void OnMapEnd() override { open_.pop_back(); }

  void OnScalar(YAML::Mark const& mark, std::string const&, YAML::anchor_t, std::string const& text) override {
    if (!expects_name()) {
      value(mark, CfgItem::Text, text);
      return;
    }
    CfgItem& item = open_.back().item->items.emplace_back();
    item.name = text;
    item.line = line_of(mark);
    open_.back().named = true;
  }

private:
  struct Level {
    CfgItem* item; // null inside what isn't kept
    bool named;    // the last item of the map waits for its value
  };

  bool expects_name() const { return !open_.empty() && open_.back().item && !open_.back().named; }

  // Where a value goes: the item that waits for it, or null.
  CfgItem* value(YAML::Mark const& mark, CfgItem::Kind kind, std::string const& text) {
    if (expects_name()) throw CfgRefusal{line_of(mark), "a key must be a text"};
    CfgItem* item = &top_;
    if (!open_.empty()) {
      Level& level = open_.back();
      if (!level.item) return nullptr;
      level.named = false;
      item = &level.item->items.back();
    }
    item->kind = kind;
    item->value = text;
    return item;
  }

  void open(YAML::Mark const& mark, CfgItem* item) {
    if (open_.size() == max_depth) throw CfgRefusal{line_of(mark), "nested too deep"};
    open_.push_back({item && item->kind == CfgItem::Map ? item : nullptr, false});
  }

  CfgItem& top_;
  std::vector<Level> open_; // an open item is the last one of its parent, so that nothing moves it
};

void read(std::string_view text, CfgItem& top) {
  std::istringstream stream{std::string(text)};
  YAML::Parser parser(stream);
  Builder builder(top);
  parser.HandleNextDocument(builder);
  if (top.kind != CfgItem::Map && top.kind != CfgItem::Null) throw CfgRefusal{1, "a mapping is expected"};
  CfgItem rest;
  Builder ignored(rest);
  if (parser.HandleNextDocument(ignored)) throw CfgRefusal{0, "more than one document"};
}

} // namespace

int ReadCfg(std::string_view text, CfgItem& top, CfgRefusal& refusal) {
  try {
    read(text, top);
    return 0;
  } catch (CfgRefusal const& e) {
    refusal = e;
  } catch (YAML::Exception const& e) {
    refusal = {line_of(e.mark), e.msg};
  } catch (std::bad_alloc const&) {
    throw;
  } catch (std::exception const& e) { // the parser is a guest; what else it throws is a refusal too
    refusal = {0, e.what()};
  }
  return -1;
}
