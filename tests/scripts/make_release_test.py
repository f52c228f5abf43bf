#!/usr/bin/env python3
"""Tests scripts/make-release on a small repository."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "make-release"


class MakeRelease(unittest.TestCase):
  def setUp(self):
    folder = tempfile.TemporaryDirectory()
    self.addCleanup(folder.cleanup)
    self.root = pathlib.Path(folder.name)
    for name in ("scripts", "debian"):
      (self.root / name).mkdir()
    shutil.copy(SCRIPT, self.root / "scripts")
    (self.root / ".gitignore").write_text("/build/\n")
    self.git("init", "-q")

  def git(self, *arguments):
    subprocess.run(["git", "-c", "user.name=a", "-c", "user.email=a@b", *arguments], cwd=self.root,
                   check=True, capture_output=True)

  def commit(self, version, changes, entry):
    (self.root / "CMakeLists.txt").write_text(f"project(trendcsv VERSION {version} LANGUAGES CXX)\n")
    (self.root / "CHANGELOG.md").write_text("# Changelog\n" + "".join(f"\n## {c}\n" for c in changes))
    (self.root / "debian/changelog").write_text(f"trendcsv {entry}; urgency=medium\n")
    self.git("add", "-A")
    self.git("commit", "-q", "-m", "A release")

  def run_script(self, *arguments):
    return subprocess.run([self.root / "scripts/make-release", *arguments], capture_output=True,
                          text=True, check=False, env={**os.environ, "LC_ALL": "C"})

  def expect_refused(self, message, *arguments):
    done = self.run_script(*arguments)
    self.assertEqual((done.returncode, done.stdout, done.stderr),
                     (1, "", f"make-release: {message}\n"))

  def test_makes_an_archive_with_a_checksum(self):
    self.commit("2.1.0", ["2.1.0", "2.0.0"], "(2.1.0) stable")
    done = self.run_script()
    self.assertEqual((done.returncode, done.stderr), (0, ""))
    folder = self.root / "build/release-2.1.0"
    subprocess.run(["sha256sum", "-c", "--status", "SHA256SUMS"], cwd=folder, check=True)
    names = subprocess.run(["tar", "-tzf", "trendcsv-2.1.0.tar.gz"], cwd=folder, check=True,
                           capture_output=True, text=True).stdout.split()
    self.assertIn("trendcsv-2.1.0/debian/changelog", names)
    archive = (folder / "trendcsv-2.1.0.tar.gz").read_bytes()
    self.run_script()
    self.assertEqual((folder / "trendcsv-2.1.0.tar.gz").read_bytes(), archive)

  def test_between_releases_there_is_nothing_to_release(self):
    self.commit("2.0.0", ["Unreleased", "2.0.0"], "(2.0.0+dev) UNRELEASED")
    self.assertEqual(self.run_script("--check").returncode, 0)
    self.expect_refused("CHANGELOG.md has changes that belong to no version yet")

  def test_a_version_without_an_entry_is_refused(self):
    self.commit("2.1.0", ["Unreleased", "2.0.0"], "(2.1.0+dev) UNRELEASED")
    self.expect_refused("CHANGELOG.md has no entry for 2.1.0", "--check")

  def test_an_older_version_is_refused(self):
    self.commit("2.0.0", ["2.1.0", "2.0.0"], "(2.1.0) stable")
    self.expect_refused("CHANGELOG.md starts with 2.1.0, but the version is 2.0.0", "--check")

  def test_another_version_of_the_packages_is_refused(self):
    self.commit("2.1.0", ["2.1.0"], "(2.0.0) stable")
    self.expect_refused("debian/changelog must start with 'trendcsv (2.1.0) stable;'", "--check")

  def test_changes_that_are_not_committed_are_refused(self):
    self.commit("2.1.0", ["2.1.0"], "(2.1.0) stable")
    (self.root / "new").write_text("")
    self.expect_refused("there are changes that are not committed")


if __name__ == "__main__":
  unittest.main()
