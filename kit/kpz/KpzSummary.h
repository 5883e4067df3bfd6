// KpzSummary.h - the closing lines of a kpz batch: how many files were done,
// how many failed and why, and the exit status the run ends with.
//
// Part of the kit (kit/kpz); uses only the C++ library.
//
//   kpz: 1000 files: 990 done, 10 failed
//   kpz:   7 not a KPZ raw file (no TIFF header)
//   kpz:   3 file not found
//
// Reasons are listed by count, most frequent first, equal counts in
// alphabetical order. Files done with a remark (AddNote) follow, counted
// the same way:
//
//   kpz:   2 previews re-encoded at quality 95: edges not a whole number of 16-pixel blocks
//
//   KpzSummary s;
//   s.Add(0, "");                      // a file done
//   s.Add(1, "file not found");        // a file failed
//   std::string text = s.Render();
//
// Holds no pointers.
#ifndef KPZ_KIT_KPZ_KPZSUMMARY_H
#define KPZ_KIT_KPZ_KPZSUMMARY_H

#include <cstddef>
#include <map>
#include <string>
#include <utility>

class KpzSummary {
 public:
  // Counts one file: done when `status` is 0, else failed for `reason`
  // (an empty reason counts as "failed").
  void Add(int status, const std::string& reason);

  // Counts a remark about a file done: `noun` names the picture
  // ("preview"), `note` says what was done to it (for --upright:
  // KpzUpright::SummaryNote); an empty note is not counted.
  void AddNote(const std::string& noun, const std::string& note);
  bool HasNotes() const { return !m_notes.empty(); }

  std::size_t Files() const { return m_done + m_failed; }
  std::size_t Done() const { return m_done; }
  std::size_t Failed() const { return m_failed; }

  // 0 when nothing failed; otherwise the highest status added (3 output
  // over 2 usage over 1 input).
  int ExitStatus() const { return m_status; }

  // The lines shown above, each ending with a newline.
  std::string Render() const;
  // Only the remarks' lines ("" when there are none).
  std::string RenderNotes() const;

 private:
  std::size_t m_done = 0;
  std::size_t m_failed = 0;
  int m_status = 0;
  std::map<std::string, std::size_t> m_reasons;
  std::map<std::pair<std::string, std::string>, std::size_t> m_notes;  // (note, noun)
};

#endif  // KPZ_KIT_KPZ_KPZSUMMARY_H
