// KpzOutputClaims.h - which input of a kpz batch may write an output name
// that several inputs share.
//
// Part of the kit (kit/kpz); uses the C++ library and KpzShownName.
// Inputs are numbered in input order; inputs with the same key (the output
// name, normalised) form a group. An output name belongs to the first input
// of its group, in input order, that actually wrote it: an input that fails
// (its file cannot be read, holds no such picture, its output cannot be
// written) takes nothing, and the next one may write. So that the outcome
// does not depend on the timing of the worker threads, an input that is
// ready to write first waits until every earlier input of its group has
// finished. The tasks of a KpzBatch take indices in increasing order, so
// every earlier input is already running or done when a later one waits,
// and no wait is ever on a later input.
//
//   KpzOutputClaims claims(keys);                // keys[i]: input i's output name
//   KpzOutputClaims::Turn turn(claims, i);       // in task i
//   ... read input i; on failure return (the turn ends as not written) ...
//   std::size_t owner = turn.WaitForEarlier();   // KpzOutputClaims::kNone or the writer
//   ... write; turn.Wrote() ...
//   // a later input of the group, refused: "kpz: " + in + ": " + TakenWords(out, owner's input)
//
// Shared by the worker threads of one batch; every member is safe to call
// from any thread. Holds no pointers.
#ifndef KPZ_KIT_KPZ_KPZOUTPUTCLAIMS_H
#define KPZ_KIT_KPZ_KPZOUTPUTCLAIMS_H

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

class KpzOutputClaims {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  // The summary's reason for an input refused its output name.
  static constexpr const char* kTakenReason = "output already written by an earlier input";

  // What every front end says of an input whose output name `output` the
  // earlier input `owner` wrote: "not written: <output> is already written
  // by <owner>", the names shown as KpzShownName shows them.
  static std::string TakenWords(const std::string& output, const std::string& owner);

  // The same when the owner's name is no longer at hand (a long run keeps
  // the names written as digests, KpzNameSet): "not written: <output> is
  // already written by an earlier input".
  static std::string TakenEarlierWords(const std::string& output);

  // keys[i] is input i's output name; an empty key takes part in no group.
  explicit KpzOutputClaims(const std::vector<std::string>& keys);
  KpzOutputClaims(const KpzOutputClaims&) = delete;
  KpzOutputClaims& operator=(const KpzOutputClaims&) = delete;

  // Input `index`'s turn; its end (destruction) records whether it wrote.
  class Turn {
   public:
    Turn(KpzOutputClaims& claims, std::size_t index) : m_claims(claims), m_index(index) {}
    ~Turn() { m_claims.finish(m_index, m_wrote); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // Waits until every earlier input of the group has finished; the index
    // of the one that wrote the output, or kNone when none did.
    std::size_t WaitForEarlier() { return m_claims.waitForEarlier(m_index); }
    // This input wrote the output.
    void Wrote() { m_wrote = true; }

   private:
    KpzOutputClaims& m_claims;
    std::size_t m_index;
    bool m_wrote = false;
  };

  // The number of inputs.
  std::size_t Count() const { return m_previous.size(); }

  // The earlier input of the same group just before `index`, or kNone.
  std::size_t Previous(std::size_t index) const { return m_previous[index]; }

 private:
  enum State : unsigned char { kRunning, kWrote, kFailed };

  std::size_t waitForEarlier(std::size_t index);
  void finish(std::size_t index, bool wrote);

  std::mutex m_lock;
  std::condition_variable m_finished;
  std::vector<std::size_t> m_previous;  // fixed after construction
  std::vector<State> m_state;           // guarded by m_lock
};

#endif  // KPZ_KIT_KPZ_KPZOUTPUTCLAIMS_H
