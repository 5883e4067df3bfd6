// KpzPyExtraction.h - what the module's one picture entry point
// (kpz._kpz.picture) gives when more than the picture's bytes is asked for:
// kpz._kpz.Picture, one extraction's outcome; and the exit statuses every
// front end shares (kpz._kpz.kit.ExitStatus).
//
// Part of the Python module kpz._kpz (python/src). A Picture comes from one
// parse of a file's head (KpzExtraction over the read-at interface): for a
// whole source, the picture itself with its range and the note of its turn;
// for a head already in memory (a remote file's first bytes and its size),
// the range to fetch and, with upright, the orientation, which turn() then
// applies to the fetched bytes without parsing the head again.
//
//   got = _kpz.picture(head, "preview", upright=True, file_size=size)
//   stored = fetch(url, got.offset, got.length)           # the caller's read
//   if got.turns: got = got.turn(stored)                  # got.data, got.note
#ifndef KPZ_PYTHON_SRC_KPZPYEXTRACTION_H
#define KPZ_PYTHON_SRC_KPZPYEXTRACTION_H

#include <pybind11/pybind11.h>

#include "kpz/KpzExtraction.h"

// One extraction as Python holds it.
struct KpzPyPicture {
  KpzExtraction::Outcome outcome;  // a success; its bytes moved to `data`
  KpzExtraction::Options options;  // what was asked (kind, upright)
  pybind11::object data;           // the picture, or None when only located
};

// Registers Picture on the module `m` and ExitStatus on its submodule `kit`.
void KpzPyRegisterExtraction(pybind11::module_& m, pybind11::module_& kit);

#endif  // KPZ_PYTHON_SRC_KPZPYEXTRACTION_H
