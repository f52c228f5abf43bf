"""Tests the program that runs the commands of the documents."""

import tempfile
import unittest

import documents


def run(*lines):
    """Runs a Markdown document with these lines, and returns what is wrong with it."""
    with tempfile.TemporaryDirectory() as folder:
        return documents.run_steps(documents.plan(documents.read_markdown("\n".join(lines))), folder)


class Markdown(unittest.TestCase):
    def test_accepts_the_output_shown(self):
        self.assertEqual(run("```console", "$ echo 1; echo 2 >&2", "1", "2", "```"), [])

    def test_refuses_other_output(self):
        self.assertEqual(len(run("```console", "$ echo 1", "2", "$ echo 1", "1", "```")), 1)

    def test_refuses_more_output(self):
        self.assertEqual(len(run("```console", "$ echo 1; echo 2", "1", "```")), 1)

    def test_refuses_missing_output(self):
        self.assertEqual(len(run("```console", "$ true", "1", "```")), 1)

    def test_keeps_the_exit_status_for_the_next_command(self):
        self.assertEqual(run("```console", "$ (exit 3)", "$ echo $?", "3", "```"), [])

    def test_runs_all_blocks_in_one_shell(self):
        self.assertEqual(run("```sh", "x=1", "```", "", "```console", "$ echo $x", "1", "```"), [])

    def test_refuses_a_command_that_fails(self):
        wrong = run("```sh", "true", "false", "true", "```", "```console", "$ echo", "", "```")
        self.assertEqual(len(wrong), 1)
        self.assertIn("line 2: failed", wrong[0])

    def test_refuses_a_syntax_error(self):
        self.assertEqual(len(run("```sh", "if", "```")), 1)

    def test_saves_a_block_with_a_file_name(self):
        self.assertEqual(
            run("```python x.py", "print('$1')", "```", "```console", "$ python3 x.py", "$1", "```"),
            [],
        )

    def test_does_not_run_a_block_marked_not_run(self):
        self.assertEqual(run("```sh not-run", "false", "```"), [])

    def test_refuses_a_block_of_an_unknown_kind(self):
        for block in (["```", "ls", "```"], ["```c", "x", "```"], ["```sh a b", "```"], ["```sh"]):
            with self.assertRaises(documents.WrongDocument):
                run(*block)

    def test_refuses_an_indented_block(self):
        with self.assertRaises(documents.WrongDocument):
            run("Run", "", "    ls")

    def test_refuses_output_before_a_command(self):
        with self.assertRaises(documents.WrongDocument):
            run("```console", "1", "```")

    def test_finds_broken_links(self):
        with tempfile.TemporaryDirectory() as folder:
            links = documents.check_links("[a](b.md#c) [d](https://e)", documents.pathlib.Path(folder))
            self.assertEqual(len(links), 1)


class NotRun(unittest.TestCase):
    def check(self, text):
        return documents.check_not_run("docs/target.md", documents.read_markdown(text))

    def test_refuses_a_block_that_is_not_in_the_list(self):
        self.assertEqual(len(self.check("```sh not-run\nls\n```")), 1)

    def test_refuses_an_entry_that_is_not_in_the_document(self):
        self.assertEqual(len(self.check("")), 1)

    def test_lists_documents_that_exist(self):
        root = documents.pathlib.Path(__file__).parents[2]
        for name in documents.NOT_RUN:
            self.assertTrue((root / name).exists(), name)


class ManualPage(unittest.TestCase):
    def test_reads_its_examples(self):
        blocks = documents.read_manual_page(".SH EXAMPLES\n.EX\n$ echo \\-a\n-a\n.EE\n")
        self.assertEqual(documents.split_console(blocks[0]), [(3, "echo -a", "-a\n")])


if __name__ == "__main__":
    unittest.main()
