#pragma once

#include <string>

#include "GeneratedLibrary.h"

namespace generated {

// One copy of the programmable fixture library (libfixture_programmable_<copy>.so), opened for
// the object's life. Its debug query answers from the tables last given to Program; the
// copies are distinct libraries, so each has a handle of its own.
class ProgrammableLibrary {
  public:
    ProgrammableLibrary(const std::string& compiledDirectory, int copy);
    ~ProgrammableLibrary();
    ProgrammableLibrary(const ProgrammableLibrary&) = delete;
    ProgrammableLibrary& operator=(const ProgrammableLibrary&) = delete;

    // The tables must outlive every use of the library by a handling object.
    void Program(const GeneratedLibrary& tables);
    void* Handle() const { return handle; }

  private:
    using SetLibrary = void (*)(const quarn_debug_library*);

    void* handle;
    SetLibrary setLibrary;
};

}  // namespace generated
