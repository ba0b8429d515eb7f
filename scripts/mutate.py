#!/usr/bin/env python3
"""Mutation run: does the test suite notice single faults in the plug-in?

Each mutant replaces one piece of text in one file under src/ with a faulty version whose effect
shows through the exports, the callbacks record's replies, the log or the stub words. One at a
time, the script applies a mutant, rebuilds incrementally, runs ctest (the whole suite, or until
the first failure with --first), records the failing tests and restores the file (always, also on
errors and interrupts). A mutant is caught when the build or a test fails.

    scripts/mutate.py [--source DIR] [--build DIR] [--only ID,ID...] [--tests REGEX] [--first]
                      [--json FILE] [--list]

--tests runs only the ctest tests whose names match REGEX (ctest -R), to see what one group of
tests catches on its own.

Run it on a copy of the tree (git archive HEAD | tar -x -C DIR), never on the tree being edited.

The build directory must be configured already (cmake --preset default). Runs niced, -j2.
"""
import argparse
import json
import pathlib
import subprocess
import sys
import time

# (id, file under src/, original text, faulty text, what the fault does)
MUTANTS = [
    ("dispose-null", "plugin/Exports.cpp",
     "    delete Object(handle);",
     "    Object(handle)->~MonoDebuggerHandling();\n    ::operator delete(Object(handle));",
     "dispose(NULL) dereferences the handle"),
    ("shutdown-clears-only-when-notified", "plugin/MonoDebuggerHandling.cpp",
     "        callbacks->shutdownNotify();\n    }\n    callbacks->flushClientKnowledge = nullptr;",
     "        callbacks->shutdownNotify();\n        callbacks->flushClientKnowledge = nullptr;\n    }",
     "Shutdown clears the flush slot only when the shutdown slot is set"),
    ("shutdown-keeps-flush", "plugin/MonoDebuggerHandling.cpp",
     "    callbacks->flushClientKnowledge = nullptr;", "",
     "Shutdown leaves the flush slot"),
    ("command-string", "plugin/MonoDebuggerHandling.cpp",
     '"|NM||TP|"', '"|NM| |TP|"', "command string gets a blank"),
    ("log-level-off-by-one", "plugin/DebugLogWriter.cpp",
     "if (level < messageLevel)", "if (level <= messageLevel)",
     "a writer drops lines of its own level"),
    ("log-appends-first", "plugin/DebugLogWriter.cpp",
     "std::ios::out | std::ios::trunc", "std::ios::out | std::ios::app",
     "the first writer appends to a stale log"),
    ("cpu-architecture", "plugin/Exports.cpp",
     "    return 0;\n}", "    return 1;\n}", "jit_get_cpu_architecture reports 1"),
    ("register-entry-hash-words", "plugin/Exports.cpp",
     "Hash128{entryHash.word0, entryHash.word1}", "Hash128{entryHash.word1, entryHash.word0}",
     "register_entry swaps the hash's words"),
    ("file-level-3", "queries/DebugInfoQuery.cpp",
     'Log(2, "  FILE: ", name);', 'Log(3, "  FILE: ", name);',
     'debug info "  FILE: " line at level 3'),
    ("set-only-when-one", "breakpoints/BreakpointNotify.cpp",
     "    if (isSet != 0) {\n        {", "    if (isSet == 1) {\n        {",
     "a notification treats only isSet == 1 as a set"),
    ("remove-on-first", "breakpoints/BreakpointNotify.cpp",
     "if (it->second.erase(breakpoint) == 0 || !it->second.empty())",
     "if (it->second.erase(breakpoint) == 0)",
     "an entry point switches back when any of its breakpoints goes"),
    ("breakpoint-not-recorded", "breakpoints/BreakpointNotify.cpp",
     "            breakpointMethods.insert(breakpoint);\n", "",
     "a set breakpoint is not kept, so its remove is ignored"),
    ("unknown-remove-no-dump", "breakpoints/BreakpointNotify.cpp",
     "    DumpState();  // also after an unknown handle", "",
     "a remove writes no dump"),
    ("separator-bytes", "queries/FileMatcher.cpp",
     "if (a == b || (IsSeparator(a) && IsSeparator(b)))", "if (a == b)",
     "'/' and '\\' no longer match each other"),
    ("relative-suffix-strict", "queries/FileMatcher.cpp",
     "path.size() >= rest.size()", "path.size() > rest.size()",
     "a path equal to the ./ element's rest does not match"),
    ("base-name-first-slash", "queries/FileMatcher.cpp",
     "size_t separator = element.rfind('/');", "size_t separator = element.find('/');",
     "the base name follows the first '/'"),
    ("ignore-case-only-one", "queries/FileQueries.cpp",
     "fileNames.Candidates(wanted, ignoreCase != 0, [&](std::string_view name) {\n"
     "        return FileNameMatches(name, wanted, ignoreCase != 0);",
     "fileNames.Candidates(wanted, ignoreCase == 1, [&](std::string_view name) {\n"
     "        return FileNameMatches(name, wanted, ignoreCase == 1);",
     "only ignoreCase == 1 folds case"),
    ("files-path-level-2", "queries/FileQueries.cpp",
     'Log(3, "        Path : ", name);', 'Log(2, "        Path : ", name);',
     "fetchFiles path lines at level 2"),
    ("version-minor-strict", "queries/ProtocolVersion.h",
     "minorVersion >= minor", "minorVersion > minor",
     "a field of 2.M is left out for a 2.M client"),
    ("version-major-3", "queries/ProtocolVersion.h",
     "majorVersion > 2 || ", "", "a 3.x client gets no optional field"),
    ("version-known-one", "queries/ProtocolVersion.h",
     "versionKnown != 0", "versionKnown == 1", "only versionKnown == 1 counts as known"),
    ("code-size", "queries/DebugInfoQuery.cpp",
     "kFixedCodeSize = 100", "kFixedCodeSize = 101", "debug info starts with 101"),
    ("digest-version", "queries/DebugInfoQuery.cpp",
     "if (!version.AtLeast2(14))", "if (!version.AtLeast2(15))", "digests from 2.15"),
    ("digest-zero-is-none", "queries/DebugInfoQuery.cpp",
     "if (digest >= 0)", "if (digest > 0)", "digest index 0 is taken for no digest"),
    ("end-line-column-swapped", "queries/DebugInfoQuery.cpp",
     "callbacks->writeInt(buffer, point.endLine);\n            callbacks->writeInt(buffer, point.endColumn);",
     "callbacks->writeInt(buffer, point.endColumn);\n            callbacks->writeInt(buffer, point.endLine);",
     "end column written before end line"),
    ("invalid-debug-info-reply", "queries/DebugInfoQuery.cpp",
     '        callbacks->writeString(buffer, "");\n        callbacks->writeInt(buffer, 0);\n        return;',
     "        callbacks->writeInt(buffer, 0);\n        return;",
     "invalid handle reply lacks its empty string"),
    ("method-attributes", "queries/MethodInfoQueries.cpp",
     "kMethodAttributes = 0x81", "kMethodAttributes = 0x80", "method attributes 0x80"),
    ("generic-arguments-version", "queries/MethodInfoQueries.cpp",
     "if (version.AtLeast2(15))", "if (version.AtLeast2(16))", "generic argument count from 2.16"),
    ("return-type-id", "queries/MethodInfoQueries.cpp",
     "kReturnTypeId = 1", "kReturnTypeId = 0", "parameter reply's return type id 0"),
    ("first-token", "queries/MethodQueries.cpp",
     "kFirstMethodToken = 0x06000001", "kFirstMethodToken = 0x06000000", "tokens start at row 0"),
    ("stale-generation-accepted", "queries/MethodQueries.cpp",
     "    if (entry->generation != methodCacheGeneration) {\n        return false;\n    }\n", "",
     "handles of an earlier list are accepted"),
    ("enable-ignores-alternate", "entrypoints/ExecutionSwitch.cpp",
     "if (target == entry.native || alternate != entry.native)",
     "if (target == entry.native)", "enabling swaps a stub whose alternate is not native"),
    ("alternate-not-updated", "entrypoints/ExecutionSwitch.cpp",
     "    WriteStubWord(entry.stub, kStubAlternateOffset, target);\n", "",
     "the swap leaves the alternate word"),
    ("managed-callback-target", "entrypoints/ExecutionSwitch.cpp",
     "entry.callback(entry.callbackContext, kEntryPointCallbackKind, nullptr);",
     "entry.callback(entry.callbackContext, kEntryPointCallbackKind, entry.native);",
     "a callback is told native when switched to managed"),
    ("callback-kind", "entrypoints/ExecutionSwitch.cpp",
     "entry.callback(entry.callbackContext, kEntryPointCallbackKind, entry.native);",
     "entry.callback(entry.callbackContext, 0, entry.native);", "callback kind 0 when enabling"),
    ("register-not-reconciled", "entrypoints/EntryPointRegistry.cpp",
     "        EnableDisableQuarnJobFunctionPointer(entryHash);\n    } catch (...) {",
     "    } catch (...) {",
     "a new registration is not put into the state the breakpoints demand"),
    ("unload-removes-all", "entrypoints/EntryPointRegistry.cpp",
     "    std::erase_if(list, ofLibrary);", "    list.clear();",
     "an unload drops other libraries' entry points under a hash it touches"),
    ("hook-breakpoint-set", "breakpoints/TestHooks.cpp",
     "return breakpointMap.contains(*entryHash) ? 1 : 0;",
     "return entryPoints.contains(*entryHash) ? 1 : 0;",
     "testBreakpointSet answers whether the entry point is registered"),
    ("flush-after-dump", "breakpoints/KnowledgeFlush.cpp",
     "        callbacks->flushClientKnowledge();\n    }\n    DumpState();",
     "    }\n    DumpState();\n    if (callbacks->flushClientKnowledge != nullptr) {\n"
     "        callbacks->flushClientKnowledge();\n    }",
     "the flush runs after the dump"),
    ("aux-count-not-checked", "metadata/DebugQuery.cpp",
     "counts.fileCount == 0 || counts.auxCount == 0 ||", "counts.fileCount == 0 ||",
     "an item with field 2 = 0 is kept"),
    ("breakpoint-list-level-3", "metadata/StateDump.cpp",
     'Log(2, "Breakpoint Methods List");', 'Log(3, "Breakpoint Methods List");',
     "the dump's breakpoint list at level 3"),
]


def run(command, cwd, log, timeout):
    with open(log, "a") as out:
        out.write("$ " + " ".join(command) + "\n")
        out.flush()
        try:
            return subprocess.run(["nice", "-n", "10"] + command, cwd=cwd, stdout=out,
                                  stderr=subprocess.STDOUT, timeout=timeout).returncode
        except subprocess.TimeoutExpired:
            out.write("timed out\n")
            return -1


def failed_tests(build):
    """Names of the tests the last ctest run saw fail."""
    listing = build / "Testing" / "Temporary" / "LastTestsFailed.log"
    if not listing.exists():
        return []
    return [line.split(":", 1)[1] for line in listing.read_text().splitlines() if ":" in line]


def try_mutant(mutant, source, build, log, first, tests):
    """Returns (result, failing tests)."""
    ident, relative, original, faulty, _ = mutant
    path = source / "src" / relative
    text = path.read_text()
    if text.count(original) != 1:
        return "not-applicable", []
    try:
        path.write_text(text.replace(original, faulty))
        if run(["ninja", "-C", str(build), "-j2"], source, log, 1800) != 0:
            return "caught (build)", []
        (build / "Testing" / "Temporary" / "LastTestsFailed.log").unlink(missing_ok=True)
        command = ["ctest", "--test-dir", str(build), "-j2", "--timeout", "120"]
        command += ["-R", tests] if tests else []
        status = run(command + (["--stop-on-failure"] if first else []), source, log, 3600)
        return ("caught" if status != 0 else "MISSED"), failed_tests(build)
    finally:
        path.write_text(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--source", type=pathlib.Path, default=root)
    parser.add_argument("--build", type=pathlib.Path)
    parser.add_argument("--only", default="")
    parser.add_argument("--tests", default="", help="ctest -R: run only the matching tests")
    parser.add_argument("--first", action="store_true", help="stop ctest at the first failure")
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--list", action="store_true")
    args = parser.parse_args()
    if args.list:
        for ident, relative, _, _, what in MUTANTS:
            print(f"{ident:36} {relative:34} {what}")
        return 0
    source = args.source.resolve()
    build = (args.build or source / "build" / "default").resolve()
    wanted = set(filter(None, args.only.split(",")))
    mutants = [m for m in MUTANTS if not wanted or m[0] in wanted]
    log = build / "mutate.log"
    log.write_text("")
    # Start from a green, up-to-date build so that a failure is the mutant's.
    if run(["ninja", "-C", str(build), "-j2"], source, log, 3600) != 0:
        sys.exit("the unmutated tree does not build; see " + str(log))
    results, catchers = {}, {}
    for mutant in mutants:
        started = time.monotonic()
        results[mutant[0]], catchers[mutant[0]] = try_mutant(mutant, source, build, log,
                                                             args.first, args.tests)
        print(f"{mutant[0]:36} {results[mutant[0]]:15} {time.monotonic() - started:5.0f} s  "
              f"{mutant[4]}\n    caught by: {' '.join(catchers[mutant[0]]) or '-'}", flush=True)
    run(["ninja", "-C", str(build), "-j2"], source, log, 3600)  # leave the build unmutated
    missed = [ident for ident, result in results.items() if result == "MISSED"]
    print(f"caught {sum(r.startswith('caught') for r in results.values())} of {len(results)}; "
          f"missed: {', '.join(missed) or 'none'}")
    if args.json:
        report = {ident: {"result": results[ident], "tests": catchers[ident]} for ident in results}
        args.json.write_text(json.dumps(report, indent=1) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
