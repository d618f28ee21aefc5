// SPDX-License-Identifier: BSD-3-Clause
/// Memory for the arrays that hold a factor.
#pragma once

#include <cstddef>

namespace vlm {

/// Allocates a block that std::free() gives back; large ones ask the system for large pages.
///
/// A panel's columns, and the columns of the panels that update it, lie on thousands of small
/// pages, more than a processor keeps the addresses of, and each small page of a new block is a
/// fault of its own.  The content is not set, and nothing is touched: the thread that writes first
/// has the page near it.
/// @param bytes  length, in
/// @return null when there is no memory
void* allocate_block(std::size_t bytes);

}  // namespace vlm
