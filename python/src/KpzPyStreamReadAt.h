// KpzPyStreamReadAt.h - a Python binary file object read at an offset: the
// read-at interface (jni/util/io/DtNlReadAt) for what only Python has.
//
// Part of the extension module kpz._kpz (python/src). The library and the kit
// read a file object through this class like any other source: its head with
// DtRawRecord::Read and its picture with DtRawRecord::ReadPicture, without
// the interpreter lock. GetData takes the lock for each call, seeks to the
// offset and reads, with readinto() into the caller's buffer where the
// object's class has its own, with read() otherwise. Every answer is checked
// (bytes-like and no longer than asked for; an int for readinto, at most the
// count asked for), and what read() returns is copied by its strides, as
// bytes(chunk) takes it. A file that ends before the size it reported is not
// read as if the rest were zeros: GetData fails with ENODATA and
// EndedAt() tells where it ended.
//
// No exception crosses the library: a Python exception met inside GetData
// (the object's own, or a TypeError or ValueError about an odd answer) is
// kept, GetData returns EIO, and the binding raises it unchanged, with its
// traceback, once back in Python (RaisePending). Once an exception is kept,
// every later GetData fails at once with EIO.
//
//   KpzPyStreamReadAt stream(fileObject);           // the lock held: sizes it
//   {
//     py::gil_scoped_release unlocked;
//     outcome = KpzExtraction::Extract(stream, options, into);
//   }
//   stream.RaisePending();                          // the lock held again
//
// Holds a reference to the file object: construct and destroy it with the
// lock held. One object per call and thread.
#ifndef KPZ_PYTHON_KPZPYSTREAMREADAT_H
#define KPZ_PYTHON_KPZPYSTREAMREADAT_H

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "util/io/DtNlReadAt.h"

class KpzPyStreamReadAt : public DtNlReadAt {
 public:
  // The words of the TypeError for a text-mode file object.
  static constexpr const char* kTextMode =
      "kpz: the file object is in text mode: open it in binary mode ('rb')";

  // Takes `stream` (a reference is kept) and its size: seek(0, 2)'s result,
  // or tell() when that gives None. The size must be an int a file can have
  // (TypeError, ValueError in words otherwise); an exception of seek or
  // tell passes through as it is. Call with the lock held.
  explicit KpzPyStreamReadAt(pybind11::object stream);
  ~KpzPyStreamReadAt() override;

  // See DtNlReadAt. Takes the lock itself; returns EIO when the object
  // raised or answered oddly (kept for RaisePending) and ENODATA when it
  // ended before Size().
  int GetData(std::uint64_t offset, std::size_t length, UINT8* out, std::size_t* got) override;
  std::uint64_t Size() const override { return m_size; }

  // True when a Python exception is kept for RaisePending.
  bool HasPending() const { return static_cast<bool>(m_pending); }

  // Raises the kept exception, if any; returns otherwise. Call with the
  // lock held.
  void RaisePending();

  // Whether the object ended before Size(), and at which byte.
  bool EndedEarly() const { return m_endedEarly; }
  std::uint64_t EndedAt() const { return m_endedAt; }

  // Words for an object that ended at byte `end`, before its reported `size`.
  static std::string EndedEarlyWords(std::uint64_t end, std::uint64_t size);

 private:
  // Reads [offset, offset + length) with the lock held; throws
  // pybind11::error_already_set for a Python exception.
  int readLocked(std::uint64_t offset, std::size_t length, UINT8* out, std::size_t* got);
  std::size_t readIntoOnce(UINT8* out, std::size_t room);
  std::size_t readOnce(UINT8* out, std::size_t room);

  pybind11::object m_stream;
  bool m_readinto;
  std::uint64_t m_size;
  std::unique_ptr<pybind11::error_already_set> m_pending;
  bool m_endedEarly;
  std::uint64_t m_endedAt;
};

#endif  // KPZ_PYTHON_KPZPYSTREAMREADAT_H
