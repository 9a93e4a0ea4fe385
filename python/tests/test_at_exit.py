"""What happens when the interpreter ends."""

from __future__ import annotations

import subprocess
import sys
import textwrap

import pytest

CLOSING = "KORVAL:pictoria:Tiff:closingFileHandle"


def run(script: str, *arguments: object, options: tuple[str, ...] = ()):
    return subprocess.run(
        [sys.executable, *options, "-c", textwrap.dedent(script), *map(str, arguments)],
        capture_output=True, text=True, timeout=60,
    )


@pytest.mark.parametrize("options", [(), ("-W", "error"), ("-W", "ignore")])
def test_an_open_file_is_closed_with_a_warning_on_standard_error(gray, options):
    ended = run(
        """
        import sys, tagbridge
        file = tagbridge.call("open", sys.argv[1], "r")
        """,
        gray, options=options,
    )
    assert ended.returncode == 0
    assert ended.stdout == ""
    assert ended.stderr.count(str(gray)) == 1
    assert CLOSING in ended.stderr


def test_closed_files_give_no_warning(gray):
    ended = run(
        """
        import sys, tagbridge
        tagbridge.call("close", tagbridge.call("open", sys.argv[1], "r"))
        """,
        gray,
    )
    assert (ended.returncode, ended.stderr) == (0, "")


def test_every_open_file_is_named(gray):
    ended = run(
        """
        import sys, tagbridge
        files = [tagbridge.call("open", sys.argv[1], "r") for _ in range(3)]
        """,
        gray,
    )
    assert ended.returncode == 0
    assert ended.stderr.count(str(gray)) == 3


def test_arrays_may_be_released_after_the_cleanup(gray):
    ended = run(
        """
        import sys, tagbridge
        class Keeper:
            pass
        keeper = Keeper()
        keeper.self = keeper  # released when the interpreter takes its modules down
        keeper.file = tagbridge.call("open", sys.argv[1], "r")
        keeper.strips = [tagbridge.call("readEncodedStrip", keeper.file, n) for n in range(3)]
        sys.keeper = keeper
        """,
        gray,
    )
    assert ended.returncode == 0
    assert ended.stderr.count(str(gray)) == 1


def test_a_call_after_the_cleanup_finds_the_file_closed(gray):
    ended = run(
        """
        import atexit, sys
        def late():
            try:
                tagbridge.call("readEncodedStrip", file, 0)
            except tagbridge.Error as error:
                print(error.identifier)
            tagbridge.call("close", file)
        atexit.register(late)  # before the package's own function, so it runs after it
        import tagbridge
        file = tagbridge.call("open", sys.argv[1], "r")
        """,
        gray,
    )
    assert ended.returncode == 0
    assert ended.stdout == "KORVAL:pictoria:Tiff:invalidFileId\n"
    assert ended.stderr.count(str(gray)) == 1


def test_an_error_that_nobody_catches_ends_the_program_as_usual(gray):
    ended = run(
        """
        import sys, tagbridge
        file = tagbridge.call("open", sys.argv[1], "r")
        tagbridge.call("readEncodedStrip", file, 99)
        """,
        gray,
    )
    assert ended.returncode == 1
    assert "tagbridge.Error: " in ended.stderr
    assert CLOSING in ended.stderr


def test_a_thread_inside_a_call_does_not_disturb_the_end(gray):
    ended = run(
        """
        import sys, threading, time, tagbridge
        def read():
            while True:
                try:
                    file = tagbridge.call("open", sys.argv[1], "r")
                    tagbridge.call("readEncodedStrip", file, 0)
                    tagbridge.call("close", file)
                except tagbridge.Error:
                    pass
        for _ in range(3):
            threading.Thread(target=read, daemon=True).start()
        time.sleep(0.2)
        """,
        gray,
    )
    assert ended.returncode == 0
