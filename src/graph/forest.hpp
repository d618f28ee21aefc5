// SPDX-License-Identifier: BSD-3-Clause
/// Rooted forests as lists of children, and their walk in postorder.
#pragma once

#include "base/memory.hpp"

namespace vlm {

/// Lists of children in arrays of the caller; vertices count from 0, -1 stands for none.
class Forest {
 public:
  /// n vertices without children.
  Forest(int n, Vector<int>& child, Vector<int>& sibling) : child_(child), sibling_(sibling) {
    child_.assign(n, none);
    sibling_.resize(n);
  }

  /// Puts a child in front of those that its parent has.
  void add(int child, int parent) {
    sibling_[child] = child_[parent];
    child_[parent] = child;
  }

  /// Moves the child with the largest size, the last such one, behind its siblings.
  template <class Size>
  void largest_child_last(int parent, Size size) {
    int largest = none, before_largest = none, last = none;
    for (int c = child_[parent]; c != none; last = c, c = sibling_[c])
      if (largest == none || size(c) >= size(largest)) {
        largest = c;
        before_largest = last;
      }
    if (largest == last) return;
    (before_largest == none ? child_[parent] : sibling_[before_largest]) = sibling_[largest];
    sibling_[last] = largest;
    sibling_[largest] = none;
  }

  /// Visits the tree below a root, children before their parent; its lists are used up.
  /// @param stack  work array, at least as long as the tree is high
  template <class Visit>
  void walk(int root, Vector<int>& stack, Visit visit) {
    int depth = 0;
    stack[depth] = root;
    while (depth >= 0) {
      const int v = stack[depth];
      if (const int c = child_[v]; c != none) {
        child_[v] = sibling_[c];
        stack[++depth] = c;
      } else {
        --depth;
        visit(v);
      }
    }
  }

 private:
  static constexpr int none = -1;
  Vector<int>&child_, &sibling_;
};

}  // namespace vlm
