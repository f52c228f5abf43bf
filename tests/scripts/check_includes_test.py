#!/usr/bin/env python3
"""Tests scripts/check-includes on small trees of sources."""

import json
import pathlib
import subprocess
import tempfile
import unittest

CHECK = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check-includes"

TABLE = """
| folder | what is in it | may include from |
|---|---|---|
| `src/` | the program | `text/`, `libtrend/log.h`, `libcds/*.h` |
| `text/` | numbers as text | |
| `libtrend/` | the library | `libtrend/sqlite/` |
| `libtrend/sqlite/` | the database | `libtrend/*.h`, `<sqlite3.h>` |
| `libcds/` | the client | `libtrend/log.h` |
| `*_test.cc` | a test beside the code | `tests/support/` |
| `tests/` | other tests | anything |
"""


class CheckIncludes(unittest.TestCase):
  def setUp(self):
    folder = tempfile.TemporaryDirectory()
    self.addCleanup(folder.cleanup)
    self.root = pathlib.Path(folder.name).resolve() / "tree"
    self.system = self.root.parent / "system"
    self.write("ARCHITECTURE.md", TABLE)
    for header in ("libtrend/log.h", "libtrend/lock.h", "libtrend/sqlite/log.h", "libcds/cds.h",
                   "libcds/inner/cds.h", "text/number.h", "tests/support/process.h",
                   "../system/sqlite3.h", "../system/libpq-fe.h", "../system/other.h"):
      self.write(header, "#pragma once\n")

  def write(self, name, text):
    path = self.root / name
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)

  def check(self, *sources):
    """Returns the exit status and the output of the check for a build that compiles `sources`."""
    self.write("build/compile_commands.json", json.dumps([
        {"directory": str(self.root / "build"),
         "command": f"clang++ -I.. -isystem {self.system} -o x.o -c ../{source}"}
        for source in sources]))
    done = subprocess.run([CHECK, "build"], cwd=self.root, capture_output=True, text=True,
                          check=False)
    return done.returncode, done.stdout + done.stderr

  def expect_refused(self, included, text, source="src/a.cc"):
    self.write(source, text)
    self.assertEqual(self.check(source), (1, f"{source}: must not include {included}\n"))

  def test_accepts_what_the_table_lists(self):
    self.write("src/b.h", '#include "libtrend/log.h"\n')
    self.write("src/a.cc", '#include "b.h"\n#include "text/number.h"\n'
               '#include "libcds/cds.h"\n#include <other.h>\n')
    self.write("libtrend/sqlite/a.cc", '#include "log.h"\n#include <sqlite3.h>\n'
               '#include "libtrend/lock.h"\n')
    self.write("src/a_test.cc", '#include "b.h"\n#include "tests/support/process.h"\n')
    self.write("tests/a.cc", '#include "libtrend/sqlite/log.h"\n#include <sqlite3.h>\n')
    self.assertEqual(self.check("src/a.cc", "libtrend/sqlite/a.cc", "src/a_test.cc", "tests/a.cc"),
                     (0, ""))

  def test_refuses_a_name_that_looks_like_an_allowed_one(self):
    self.expect_refused("libtrend/lock.h", '#include "libtrend/lock.h"\n')

  def test_refuses_a_header_of_the_same_name_in_another_folder(self):
    self.expect_refused("libtrend/sqlite/log.h", '#include "libtrend/sqlite/log.h"\n')

  def test_a_pattern_of_headers_leaves_out_the_folders_below(self):
    self.expect_refused("libcds/inner/cds.h", '#include "libcds/inner/cds.h"\n')

  def test_sees_an_include_through_a_macro(self):
    self.expect_refused("libtrend/lock.h", '#define LOCK "libtrend/lock.h"\n#include LOCK\n')

  def test_sees_an_include_with_odd_spaces_and_brackets(self):
    self.expect_refused("libtrend/lock.h", "  #\tinclude/**/<libtrend//lock.h>\n")

  def test_sees_an_include_with_an_indirect_path(self):
    self.expect_refused("libtrend/lock.h", '#include "../text/../libtrend/lock.h"\n')

  def test_sees_an_include_on_two_lines(self):
    self.expect_refused("libtrend/lock.h", '#inc\\\nlude "libtrend/lock.h"\n')

  def test_sees_an_include_of_a_file_that_was_read_before(self):
    self.write("libtrend/log.h", '#pragma once\n#include "libtrend/lock.h"\n')
    self.expect_refused("libtrend/lock.h", '#include "libtrend/log.h"\n#include "libtrend/lock.h"\n')

  def test_ignores_an_include_in_a_comment(self):
    self.write("src/a.cc", '// #include "libtrend/lock.h"\n/*\n#include "libtrend/lock.h"\n*/\n')
    self.assertEqual(self.check("src/a.cc"), (0, ""))

  def test_reads_a_file_that_nothing_compiles(self):
    self.write("src/a.cc", "")
    self.write("text/unused.h", '#include "libtrend/log.h"\n')
    self.assertEqual(self.check("src/a.cc"),
                     (1, "text/unused.h: must not include libtrend/log.h\n"))

  def test_reads_the_headers_of_headers(self):
    self.write("text/number.h", '#include "libtrend/log.h"\n')
    self.write("src/a.cc", '#include "text/number.h"\n')
    self.assertEqual(self.check("src/a.cc"),
                     (1, "text/number.h: must not include libtrend/log.h\n"))

  def test_a_library_is_only_for_the_folder_that_lists_it(self):
    self.expect_refused(self.system / "sqlite3.h", "#include <sqlite3.h>\n")

  def test_a_library_is_only_for_implementation_files(self):
    self.write("libtrend/sqlite/a.cc", '#include "log.h"\n')
    self.write("libtrend/sqlite/log.h", "#include <sqlite3.h>\n")
    self.assertEqual(
        self.check("libtrend/sqlite/a.cc"),
        (1, f"libtrend/sqlite/log.h: must not include {self.system}/sqlite3.h\n"))

  def test_a_folder_may_list_one_library_and_not_another(self):
    self.expect_refused(self.system / "libpq-fe.h", "#include <libpq-fe.h>\n",
                        "libtrend/sqlite/a.cc")

  def test_only_tests_may_include_what_is_for_tests(self):
    self.expect_refused("tests/support/process.h", '#include "tests/support/process.h"\n')

  def test_a_test_follows_the_row_of_its_folder(self):
    self.expect_refused("libtrend/log.h", '#include "libtrend/log.h"\n', "text/number_test.cc")

  def test_every_folder_needs_a_row(self):
    self.write("extra/a.cc", "")
    self.assertEqual(self.check("extra/a.cc"),
                     (1, "extra/a.cc: its folder is not in the table\n"))

  def test_a_folder_without_a_row_cannot_be_included(self):
    self.write("extra/a.h", "")
    self.expect_refused("extra/a.h", '#include "extra/a.h"\n')

  def test_fails_if_the_compiler_does(self):
    self.write("src/a.cc", '#include "missing.h"\n')
    status, output = self.check("src/a.cc")
    self.assertEqual(status, 1)
    self.assertIn("'missing.h' file not found", output)

  def test_refuses_a_row_that_it_cannot_read(self):
    self.write("src/a.cc", "")
    self.write("ARCHITECTURE.md", TABLE.replace("anything", "nearly anything"))
    status, output = self.check("src/a.cc")
    self.assertEqual(status, 1)
    self.assertIn("cannot understand the row", output)


unittest.main()
