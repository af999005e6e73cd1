"""Builds the wheel of the folder python/ for a caller in the folder above it."""

import os
import pathlib

from setuptools.build_meta import *  # noqa: F401,F403

os.chdir(pathlib.Path(__file__).resolve().parent.parent / "python")
