// A check tree in memory for the pages' rules: what was inserted where, with
// which state and image, and what was expanded; states can be changed as a
// user's clicks would.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/resource_loader.h"
#include "core/utils.h"
#include "ui/check_tree_sink.h"

namespace PIM::testing {

class TreeRecorder : public CheckTreeSink {
 public:
  struct Node {
    std::u16string key;
    std::u16string text;
    int state = 0;
    int image = 0;
    bool expanded = false;
    Node* parent = nullptr;
    std::vector<Node*> children;
  };

  Item insertItem(const std::u16string& key, int state, Item parent, int image) override {
    auto node = std::make_unique<Node>();
    node->key = key;
    node->text = ResourceLoader::instance()->getStringValue(key, key);
    node->state = state;
    node->image = image;
    node->parent = static_cast<Node*>(parent);
    (node->parent ? node->parent->children : top_).push_back(node.get());
    nodes_.push_back(std::move(node));
    return nodes_.back().get();
  }
  int getCheckState(Item item) const override { return static_cast<Node*>(item)->state; }
  void expand(Item item) override { static_cast<Node*>(item)->expanded = true; }

  static Node* node(Item item) { return static_cast<Node*>(item); }
  const std::vector<Node*>& top() const { return top_; }
  // The item of the node with this key (the first found in insertion
  // order), or null.
  Node* find(const std::u16string& key) const {
    for (const auto& n : nodes_)
      if (n->key == key) return n.get();
    return nullptr;
  }
  size_t size() const { return nodes_.size(); }

  // One line per item, indented two blanks a level: "text [state] image"
  // and "+" when expanded.
  std::string outline() const {
    std::string out;
    for (const Node* n : top_) outline(n, 0, out);
    return out;
  }

 private:
  static void outline(const Node* n, int depth, std::string& out) {
    out += std::string(size_t(depth) * 2, ' ') + toUtf8(n->text) + " [" + std::to_string(n->state) +
           "] " + std::to_string(n->image) + (n->expanded ? " +" : "") + "\n";
    for (const Node* c : n->children) outline(c, depth + 1, out);
  }

  std::vector<std::unique_ptr<Node>> nodes_;
  std::vector<Node*> top_;
};

}  // namespace PIM::testing
