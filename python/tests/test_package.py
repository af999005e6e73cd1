"""Examples run, types fit, and the stubs say what is there."""

from __future__ import annotations

import doctest
import inspect
import os
import pathlib
import subprocess
import sys
from typing import Any

import pytest

import mailtree
import mailtree.errors
import mailtree.values

HERE = pathlib.Path(__file__).resolve().parent
OPTIONS = doctest.ELLIPSIS | doctest.IGNORE_EXCEPTION_DETAIL | doctest.NORMALIZE_WHITESPACE


def documented(owner: Any, name: str) -> list[tuple[str, str]]:
    found = [(name, inspect.getdoc(owner) or "")]
    if inspect.isclass(owner) or inspect.ismodule(owner):
        for member, value in vars(owner).items():
            if member.startswith("__") or (inspect.ismodule(owner) and member not in getattr(owner, "__all__", ())):
                continue
            if not inspect.ismodule(value):
                found += documented(value, f"{name}.{member}")
    return found


EXAMPLES = documented(mailtree, "mailtree") + documented(mailtree.errors.Error, "errors.Error")


@pytest.mark.parametrize("name, text", [pytest.param(*each, id=each[0]) for each in EXAMPLES if ">>>" in each[1]])
def test_examples(name: str, text: str) -> None:
    test = doctest.DocTestParser().get_doctest(text, {}, name, None, 0)
    assert doctest.DocTestRunner(optionflags=OPTIONS).run(test).failed == 0


def test_everything_is_documented() -> None:
    assert [name for name, text in EXAMPLES if not text and "._" not in name and "close" not in name] == []


def test_the_guide_runs() -> None:
    assert doctest.testfile(str(HERE.parents[1] / "docs" / "python.md"), module_relative=False, optionflags=OPTIONS).failed == 0


# What pybind11 makes of a class, and of what cannot be called; a limit of the checker.
HARMLESS = ("metaclass differs", '__init__ is inconsistent, stub does not have *args', "NamedTuple is not a type")


TYPED = [str(HERE), str(HERE.parents[1] / "bench" / "python_module.py")]


@pytest.mark.parametrize("command", [["mypy", "--strict", *TYPED], ["mypy.stubtest", "--concise", "mailtree"]])
def test_types(command: list[str], tmp_path: pathlib.Path) -> None:
    package = pathlib.Path(mailtree.__file__).parents[1]
    environment = {**os.environ, "MYPYPATH": str(package), "MYPY_CACHE_DIR": str(tmp_path)}
    done = subprocess.run([sys.executable, "-m", *command], env=environment, capture_output=True, text=True, cwd=tmp_path)
    lines = [line for line in done.stdout.splitlines() if not any(harmless in line for harmless in HARMLESS)]
    assert done.stderr == "" and [line for line in lines if not line.startswith("Success")] == []
