// SPDX-License-Identifier: BSD-3-Clause
/// The stages of an analysis, for ordering_bench.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "gallery/gallery.hpp"

namespace vlm {

/// A problem by its class and size or by its file, named for a table.
gallery::Matrix named_matrix(const std::string& problem);

/// Bytes by which a child process grows at most while it runs; 0 where that can't be told.
double memory_of(const std::function<void()>& run);

/// Wall clock of each stage of whole analyses without matching, on one and on two threads,
/// milliseconds, the analysis with the least sum of three.
void print_stages(const std::vector<std::string>& problems);

/// Dissections on one thread, and what their pieces would take on several: the longest path of
/// pieces, loops of the large ones being shared, or the even share of all, whichever is more.
/// Compression and what comes behind the pieces count as on one thread.
void print_paths(const std::vector<std::string>& problems);

/// Minimum degree beside AMD, where its library is there.  The graphs are not compressed.
void print_degrees(const std::vector<std::string>& problems);

/// Wall clock of the steps of a weighted matching, and of whole analyses with one, on one and on two
/// threads, milliseconds, the least of five.  Pairs: those of a symmetric matrix, with the graph that
/// is ordered.
void print_matchings(const std::vector<std::string>& problems);

}  // namespace vlm
