// KpzClaimWindow.h - which input of a kpz batch may write an output name
// that several inputs share, when the inputs are found as the run goes.
//
// In the kit (kit/kpz); uses the C++ library, KpzNameSet and KpzShownName.
// The rule, the same in every front end: an output name belongs to the first
// input, in input order, that actually wrote it; an input that fails (its
// file cannot be read, holds no such picture, its output cannot be written)
// takes nothing, and the next one may write. A later input of the same name
// waits until every earlier one has finished and is refused when one of them
// wrote. It takes the inputs one at a time (Add, in input order) and lets
// them go once delivered (Release, in input order), so what it holds does not
// grow with the run beyond a digest per name written:
//   - the inputs added and not yet released (the batch's window): their
//     names, input names and states, exactly;
//   - the names that released inputs wrote, as digests (KpzNameSet, 12 to
//     24 bytes each);
//   - for the words, the input that wrote each of the last `ownersKept`
//     names written; a name written longer ago is refused all the same, its
//     writer told as "an earlier input" (TakenEarlierWords).
//
//   KpzClaimWindow claims;
//   claims.Add(i, key, input);                     // as input i is found
//   KpzClaimWindow::Turn turn(claims, i);          // in task i
//   ... read input i; on failure return (the turn ends as not written) ...
//   KpzClaimWindow::Earlier e = turn.WaitForEarlier();
//   if (e.taken) ... refuse: e.named ? TakenWords(out, e.owner) : TakenEarlierWords(out)
//   ... write; turn.Wrote() ...
//   claims.Release(i);                             // after input i was delivered
//
// Shared by the worker threads of one batch; every member is safe to call
// from any thread. Holds no pointers.
#ifndef KPZ_KIT_KPZ_KPZCLAIMWINDOW_H
#define KPZ_KIT_KPZ_KPZCLAIMWINDOW_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>

#include "kpz/KpzNameSet.h"

class KpzClaimWindow {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  // Writers of names kept for the words, by default.
  static constexpr std::size_t kOwnersKept = 8192;

  // The summary's reason for an input refused its output name.
  static constexpr const char* kTakenReason = "output already written by an earlier input";

  // What every front end says of an input whose output name `output` the
  // earlier input `owner` wrote: "not written: <output> is already written
  // by <owner>", the names shown as KpzShownName shows them.
  static std::string TakenWords(const std::string& output, const std::string& owner);

  // The same when the owner's name is no longer at hand: "not written:
  // <output> is already written by an earlier input".
  static std::string TakenEarlierWords(const std::string& output);

  // Whether an earlier input wrote the name, and which.
  struct Earlier {
    bool taken = false;  // an earlier input wrote it
    bool named = false;  // and `owner` is its input's name (else it is not kept)
    std::string owner;
  };

  explicit KpzClaimWindow(std::size_t ownersKept = kOwnersKept);
  KpzClaimWindow(const KpzClaimWindow&) = delete;
  KpzClaimWindow& operator=(const KpzClaimWindow&) = delete;

  // Input `index`, the next in input order (0 first, then each one more
  // than the last), whose output name is `key` (empty: it takes part in no
  // group) and whose own name is `input`. One call at a time.
  void Add(std::size_t index, const std::string& key, const std::string& input);

  // Input `index`, the oldest added and not released, is over: a name it
  // wrote goes to the names written. Call it once its turn has ended.
  void Release(std::size_t index);

  // Input `index`'s turn; its end (destruction) records whether it wrote.
  class Turn {
   public:
    Turn(KpzClaimWindow& claims, std::size_t index) : m_claims(claims), m_index(index) {}
    ~Turn() { m_claims.finish(m_index, m_wrote); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // Waits until every earlier input of the same name has finished; says
    // whether one of them wrote it, and which.
    Earlier WaitForEarlier() { return m_claims.waitForEarlier(m_index); }
    // This input wrote the output.
    void Wrote() { m_wrote = true; }

   private:
    KpzClaimWindow& m_claims;
    std::size_t m_index;
    bool m_wrote = false;
  };

  // Inputs added and not yet released.
  std::size_t Held() const;
  // Turns waiting in WaitForEarlier for an earlier input still running.
  std::size_t Waiting() const;
  // Names written by released inputs.
  std::size_t Written() const;
  // Writers kept for the words (at most ownersKept).
  std::size_t OwnersKept() const;

 private:
  enum State : unsigned char { kRunning, kWrote, kFailed };
  struct Input {
    std::string key;
    std::string name;
    std::size_t previous = kNone;  // the input of the same key added just before
    State state = kRunning;
  };

  Earlier waitForEarlier(std::size_t index);
  void finish(std::size_t index, bool wrote);
  // A name written by a released input, told as Earlier (m_lock held).
  bool writtenBefore(const std::string& key, Earlier* earlier) const;

  const std::size_t m_ownersKept;
  mutable std::mutex m_lock;
  std::condition_variable m_finished;
  // Guarded by m_lock:
  std::size_t m_first = 0;                              // index of m_inputs.front()
  std::size_t m_waiting = 0;                            // turns blocked in waitForEarlier
  std::deque<Input> m_inputs;                           // added, not released
  std::unordered_map<std::string, std::size_t> m_last;  // key -> last held input of it
  KpzNameSet m_written;                                 // keys released inputs wrote
  std::unordered_map<std::string, std::string> m_owners;  // key -> writer, the recent ones
  std::deque<std::string> m_ownerOrder;                 // their keys, oldest first
};

#endif  // KPZ_KIT_KPZ_KPZCLAIMWINDOW_H
