// KpzClaimWindow.cpp - the first input that writes an output name owns it,
// for inputs found as the run goes (kit/kpz). See KpzClaimWindow.h.

#include "kpz/KpzClaimWindow.h"

#include <utility>

#include "kpz/KpzShownName.h"

std::string KpzClaimWindow::TakenWords(const std::string& output, const std::string& owner) {
  return "not written: " + KpzShownName::Of(output) + " is already written by " +
         KpzShownName::Of(owner);
}

std::string KpzClaimWindow::TakenEarlierWords(const std::string& output) {
  return "not written: " + KpzShownName::Of(output) + " is already written by an earlier input";
}

KpzClaimWindow::KpzClaimWindow(std::size_t ownersKept) : m_ownersKept(ownersKept) {}

void KpzClaimWindow::Add(std::size_t index, const std::string& key, const std::string& input) {
  std::lock_guard<std::mutex> hold(m_lock);
  if (m_inputs.empty()) {
    m_first = index;  // every earlier one was released
  }
  Input in;
  in.key = key;
  in.name = input;
  if (!key.empty()) {
    const auto found = m_last.find(key);
    if (found != m_last.end()) {
      in.previous = found->second;
      found->second = index;
    } else {
      m_last.emplace(key, index);
    }
  }
  m_inputs.push_back(std::move(in));
}

void KpzClaimWindow::Release(std::size_t index) {
  {
    std::lock_guard<std::mutex> hold(m_lock);
    if (m_inputs.empty() || index != m_first) {
      return;  // not the oldest held: nothing to let go
    }
    Input& in = m_inputs.front();
    if (!in.key.empty()) {
      const auto last = m_last.find(in.key);
      if (last != m_last.end() && last->second == index) {
        m_last.erase(last);
      }
      if (in.state == kWrote) {
        m_written.Insert(in.key);
        if (m_ownersKept > 0) {
          if (m_ownerOrder.size() == m_ownersKept) {
            m_owners.erase(m_ownerOrder.front());
            m_ownerOrder.pop_front();
          }
          m_owners[in.key] = std::move(in.name);
          m_ownerOrder.push_back(std::move(in.key));
        }
      }
    }
    m_inputs.pop_front();
    ++m_first;
  }
  m_finished.notify_all();  // a later input waiting on this one finds it released
}

bool KpzClaimWindow::writtenBefore(const std::string& key, Earlier* earlier) const {
  if (!m_written.Contains(key)) {
    return false;
  }
  earlier->taken = true;
  const auto owner = m_owners.find(key);
  if (owner != m_owners.end()) {
    earlier->named = true;
    earlier->owner = owner->second;
  }
  return true;
}

KpzClaimWindow::Earlier KpzClaimWindow::waitForEarlier(std::size_t index) {
  Earlier earlier;
  std::unique_lock<std::mutex> hold(m_lock);
  if (index < m_first || index - m_first >= m_inputs.size()) {
    return earlier;  // not held: never added
  }
  const std::string key = m_inputs[index - m_first].key;
  if (key.empty() || writtenBefore(key, &earlier)) {
    return earlier;
  }
  // At most one input of a name writes: each later one finds it here.
  std::size_t k = m_inputs[index - m_first].previous;
  while (k != kNone) {  // each pass goes to an earlier input
    ++m_waiting;  // seen by others only while the wait has let go of the lock
    m_finished.wait(hold, [this, k] { return k < m_first || m_inputs[k - m_first].state != kRunning; });
    --m_waiting;
    if (k < m_first) {
      // Released, and every input before it: what they wrote is in the set.
      writtenBefore(key, &earlier);
      return earlier;
    }
    const Input& in = m_inputs[k - m_first];
    if (in.state == kWrote) {
      earlier.taken = true;
      earlier.named = true;
      earlier.owner = in.name;
      return earlier;
    }
    k = in.previous;
  }
  return earlier;
}

void KpzClaimWindow::finish(std::size_t index, bool wrote) {
  {
    std::lock_guard<std::mutex> hold(m_lock);
    if (index < m_first || index - m_first >= m_inputs.size()) {
      return;
    }
    m_inputs[index - m_first].state = wrote ? kWrote : kFailed;
  }
  m_finished.notify_all();
}

std::size_t KpzClaimWindow::Held() const {
  std::lock_guard<std::mutex> hold(m_lock);
  return m_inputs.size();
}

std::size_t KpzClaimWindow::Waiting() const {
  std::lock_guard<std::mutex> hold(m_lock);
  return m_waiting;
}

std::size_t KpzClaimWindow::Written() const {
  std::lock_guard<std::mutex> hold(m_lock);
  return m_written.Size();
}

std::size_t KpzClaimWindow::OwnersKept() const {
  std::lock_guard<std::mutex> hold(m_lock);
  return m_ownerOrder.size();
}
