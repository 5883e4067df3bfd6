// KpzSummary.cpp - counting a kpz batch's outcomes and its closing lines
// (kit/kpz). See KpzSummary.h.

#include "kpz/KpzSummary.h"

#include <algorithm>
#include <utility>
#include <vector>

void KpzSummary::Add(int status, const std::string& reason) {
  if (status == 0) {
    ++m_done;
    return;
  }
  ++m_failed;
  if (status > m_status) {
    m_status = status;
  }
  ++m_reasons[reason.empty() ? std::string("failed") : reason];
}

void KpzSummary::AddNote(const std::string& noun, const std::string& note) {
  if (note.empty()) {
    return;  // nothing was remarked (a lossless turn)
  }
  ++m_notes[std::make_pair(note, noun)];
}

std::string KpzSummary::RenderNotes() const {
  std::vector<std::pair<std::pair<std::string, std::string>, std::size_t>> notes(m_notes.begin(),
                                                                                  m_notes.end());
  std::stable_sort(notes.begin(), notes.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  std::string text;
  for (const auto& n : notes) {
    text += "kpz:   " + std::to_string(n.second) + " " + n.first.second +
            (n.second == 1 ? " " : "s ") + n.first.first + "\n";
  }
  return text;
}

std::string KpzSummary::Render() const {
  const std::size_t files = Files();
  std::string text = "kpz: " + std::to_string(files) + (files == 1 ? " file: " : " files: ") +
                     std::to_string(m_done) + " done, " + std::to_string(m_failed) +
                     " failed\n";
  std::vector<std::pair<std::string, std::size_t>> reasons(m_reasons.begin(), m_reasons.end());
  // The map gives alphabetical order; a stable sort by count keeps it for ties.
  std::stable_sort(reasons.begin(), reasons.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  for (const auto& r : reasons) {
    text += "kpz:   " + std::to_string(r.second) + " " + r.first + "\n";
  }
  return text + RenderNotes();
}
