#pragma once

#include "quarn_debug_producer.h"

// One copy of the programmable compiled library (libfixture_programmable_<copy>.so, from
// tests/fixtures/fixture_programmable.c), open for the object's life. Its debug query answers
// from the tables given last; the copies are distinct libraries, so each has a handle of its own.
// Tables must outlive every use of the library by a handling object.
class ProgrammableLibrary {
  public:
    explicit ProgrammableLibrary(int copy);
    ~ProgrammableLibrary();
    ProgrammableLibrary(const ProgrammableLibrary&) = delete;
    ProgrammableLibrary& operator=(const ProgrammableLibrary&) = delete;

    void* Handle() const { return handle; }
    void Describe(const quarn_debug_library* library) const { setLibrary(library); }

  private:
    using SetLibrary = void (*)(const quarn_debug_library*);

    void* handle;
    SetLibrary setLibrary;
};
