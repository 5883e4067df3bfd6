// KpzOutputClaims.cpp - the first input that writes an output name owns it
// (kit/kpz). See KpzOutputClaims.h for the contracts.

#include "kpz/KpzOutputClaims.h"

#include <map>

#include "kpz/KpzShownName.h"

std::string KpzOutputClaims::TakenWords(const std::string& output, const std::string& owner) {
  return "not written: " + KpzShownName::Of(output) + " is already written by " +
         KpzShownName::Of(owner);
}

std::string KpzOutputClaims::TakenEarlierWords(const std::string& output) {
  return "not written: " + KpzShownName::Of(output) + " is already written by an earlier input";
}

KpzOutputClaims::KpzOutputClaims(const std::vector<std::string>& keys)
    : m_lock(), m_finished(), m_previous(keys.size(), kNone), m_state(keys.size(), kRunning) {
  std::map<std::string, std::size_t> last;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (keys[i].empty()) {
      continue;
    }
    const auto found = last.find(keys[i]);
    if (found != last.end()) {
      m_previous[i] = found->second;
      found->second = i;
    } else {
      last.emplace(keys[i], i);
    }
  }
}

std::size_t KpzOutputClaims::waitForEarlier(std::size_t index) {
  std::unique_lock<std::mutex> hold(m_lock);
  // At most one input of a group writes: each later one finds it here.
  for (std::size_t k = m_previous[index]; k != kNone; k = m_previous[k]) {
    m_finished.wait(hold, [this, k] { return m_state[k] != kRunning; });
    if (m_state[k] == kWrote) {
      return k;
    }
  }
  return kNone;
}

void KpzOutputClaims::finish(std::size_t index, bool wrote) {
  {
    std::lock_guard<std::mutex> hold(m_lock);
    m_state[index] = wrote ? kWrote : kFailed;
  }
  m_finished.notify_all();
}
