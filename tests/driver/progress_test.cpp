// SPDX-License-Identifier: BSD-3-Clause
/// Listeners of a handle: what they are told, and calls that they end.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "caller.hpp"
#include "reference.hpp"
#include "session.hpp"
#include "velmora.h"

namespace vlm::test {
namespace {

struct Word {
  int phase;
  double share;
};

/// Keeps what it is told; ends the call at a word, from 0, or never.
struct Listener {
  std::vector<Word> words;
  int last = -1;
  std::thread::id thread = std::this_thread::get_id();
  bool on_own_thread = true;

  static int hear(void* data, int phase, double share) {
    Listener& self = *static_cast<Listener*>(data);
    self.on_own_thread = self.on_own_thread && std::this_thread::get_id() == self.thread;
    self.words.push_back({phase, share});
    return static_cast<int>(self.words.size()) - 1 == self.last ? 7 : 0;
  }
  void attach(Session& session) { velmora_set_progress(session.handle(), hear, this); }
};

/// Shares ascend from 0 to 1 within a phase, and phases follow each other as asked for.
void expect_orderly(const std::vector<Word>& words, std::vector<int> phases) {
  std::size_t k = 0;
  for (const int phase : phases) {
    ASSERT_LT(k, words.size());
    EXPECT_EQ(words[k].share, 0);
    double before = 0;
    for (; k < words.size() && words[k].phase == phase; ++k) {
      EXPECT_GE(words[k].share, before);
      before = words[k].share;
    }
    EXPECT_EQ(before, 1) << "phase " << phase;
  }
  EXPECT_EQ(k, words.size());
}

/// Schemes of the factorization, and their threads.
struct Scheme {
  int threads, two_level, fixed_order;
};
constexpr Scheme schemes[] = {{1, 1, 0}, {2, 1, 0}, {2, 0, 0}, {2, 1, 1}, {3, 1, 0}};

void choose(Session& session, const Scheme& scheme) {
  session.iparm(24) = scheme.two_level;
  session.iparm(34) = scheme.fixed_order;
}

TEST(Progress, IsToldInOrderOnTheCallingThread) {
  for (const Matrix& m : {gallery::poisson3d(12), gallery::random_indefinite(300, 0.02, 0.1, 2, -4),
                          gallery::convection_diffusion(12, 2.0, 3)})
    for (const Scheme& scheme : schemes) {
      SCOPED_TRACE(std::to_string(m.mtype) + ", threads " + std::to_string(scheme.threads));
      Session session(m, scheme.threads);
      choose(session, scheme);
      Listener listener;
      listener.attach(session);
      const auto b = random_vector(m, 1, 5);
      session.iparm(8) = 0;
      session.solve(b, 1, 13);
      EXPECT_EQ(session.error, 0);
      expect_orderly(listener.words, {11, 22, 33});
      listener.words.clear();
      std::vector<double> copy = m.a;
      Matrix inverse = m;
      session.use(inverse);
      session.iparm(36) = 1;
      EXPECT_EQ(session.run(-22), 0);
      expect_orderly(listener.words, {-22});
      EXPECT_TRUE(listener.on_own_thread);
      velmora_set_progress(session.handle(), nullptr, nullptr);
      listener.words.clear();
      session.use(m);
      EXPECT_EQ(session.factor(), 0);
      EXPECT_TRUE(listener.words.empty());
    }
}

TEST(Progress, AnEndedCallLeavesAHandleThatWorks) {
  const Matrix m = gallery::saddle_point(9, 4);
  const auto b = random_vector(m, 1, 5);
  for (const Scheme& scheme : schemes)
    for (int last = 0;; ++last) {
      SCOPED_TRACE("threads " + std::to_string(scheme.threads) + ", word " + std::to_string(last));
      Session session(m, scheme.threads);
      choose(session, scheme);
      session.iparm(13) = 2;
      session.iparm(11) = session.iparm(21) = 1;
      Listener listener;
      listener.last = last;
      listener.attach(session);
      session.solve(b, 1, 13);
      if (session.error == 0) break;  // fewer words than that
      ASSERT_EQ(session.error, -9);
      char text[1024];
      velmora_last_message(text, sizeof text);
      EXPECT_NE(std::string(text).find("listener"), std::string::npos);
      EXPECT_EQ(listener.words.size(), static_cast<std::size_t>(last) + 1);
      // What was being done can be done, on what there is.
      const int phase = listener.words.back().phase;
      const int again = phase == 11 ? 13 : phase == 22 ? 23 : 33;
      const auto x = session.solve(b, 1, again);
      EXPECT_EQ(session.error, 0);
      EXPECT_LT(normwise_error(m, x, b), 1e-11);
    }
}

/// Large enough for words in the middle of the factorization and of the inversion.
TEST(Progress, EndsInTheMiddleOfAPhase) {
  const Matrix m = gallery::poisson3d(26);
  for (const Scheme& scheme : {schemes[0], schemes[1], schemes[2]}) {
    SCOPED_TRACE("threads " + std::to_string(scheme.threads));
    Session session(m, scheme.threads);
    choose(session, scheme);
    ASSERT_EQ(session.analyse(), 0);
    Listener listener;
    listener.last = 1;  // not the begin; the end only on a very fast machine
    listener.attach(session);
    EXPECT_EQ(session.factor(), -9);
    EXPECT_EQ(listener.words.front().phase, 22);
    listener.last = -1;
    EXPECT_EQ(session.factor(), 0);
    for (const int keeping : {0, 1, 2}) {
      listener.words.clear();
      listener.last = 2;  // behind what comes before the panels
      Matrix inverse = m;
      session.use(inverse);
      session.iparm(36) = keeping;
      EXPECT_EQ(session.run(-22), -9);
      session.use(m);
      listener.last = -1;
      const auto b = random_vector(m, 1, 5);
      if (keeping == 0) {
        EXPECT_EQ(session.factor(), 0);
      }
      EXPECT_LT(normwise_error(m, session.solve(b), b), 1e-13);
    }
    const auto many = random_vector(m, 512, 5);
    listener.words.clear();
    listener.last = 1;
    session.solve(many, 512);
    EXPECT_EQ(session.error, -9);
    EXPECT_EQ(listener.words.back().share, 0);
    listener.last = -1;
    EXPECT_LT(normwise_error(m, session.solve(many, 512), many), 1e-13);
  }
}

TEST(Progress, IterationsAreToldAndEnded) {
  const Matrix m = gallery::poisson3d(14);
  for (int last = 0;; ++last) {
    SCOPED_TRACE("word " + std::to_string(last));
    Caller caller(-2, m.ia, m.ja, m.a);
    caller.init(1);
    caller.dparm[2] = 60;
    auto b = random_vector(m, 1, 5), x = b;
    caller.b_ptr = b.data();
    caller.x_ptr = x.data();
    Listener listener;
    listener.last = last;
    velmora_set_progress(caller.pt, Listener::hear, &listener);
    const int error = caller.run(13);
    if (error == 0) {
      EXPECT_EQ(listener.words.front().phase, 11);
      EXPECT_EQ(listener.words.back().phase, 33);
      EXPECT_GE(last, 4);
      break;
    }
    ASSERT_EQ(error, -9);
    listener.last = -1;
    EXPECT_EQ(caller.run(listener.words.back().phase == 33 ? 33 : 13), 0);
    EXPECT_LT(normwise_error(m, x, b), 1e-4);
  }
}

/// Minimum degree is ended between two pivots, nested dissection within a piece, also where the
/// piece is another thread's.
TEST(Progress, AnAnalysisEndsInTheMiddle) {
  const Matrix solid = gallery::poisson3d(60), net = gallery::circuit(120000, 8);
  struct Case {
    const Matrix& m;
    int ordering, threads;
  };
  for (const Case& c : {Case{solid, 0, 1}, Case{solid, 2, 1}, Case{solid, 2, 2}, Case{net, 2, 1},
                        Case{net, 2, 3}}) {
    SCOPED_TRACE("ordering " + std::to_string(c.ordering) + ", threads " +
                 std::to_string(c.threads));
    Session session(c.m, c.threads);
    session.iparm(2) = c.ordering;
    Listener listener;
    listener.last = 1;
    listener.attach(session);
    EXPECT_EQ(session.analyse(), -9);
    EXPECT_EQ(listener.words.back().phase, 11);
    EXPECT_EQ(listener.words.back().share, 0);  // the order was not complete
    EXPECT_TRUE(listener.on_own_thread);
  }
}

TEST(Progress, TheListenerIsForgottenWithTheHandle) {
  const Matrix m = gallery::poisson2d(8);
  Session session(m);
  Listener listener;
  listener.last = 0;
  listener.attach(session);
  session.run(33);  // no analysis: the listener has nothing to hear
  EXPECT_TRUE(listener.words.empty());
  EXPECT_EQ(session.analyse(), -9);
  session.run(-1);
  EXPECT_TRUE(session.empty());
  EXPECT_EQ(session.analyse(), 0);
  EXPECT_EQ(listener.words.size(), 1u);
}

}  // namespace
}  // namespace vlm::test
