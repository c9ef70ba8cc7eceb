"""Builds qvpower with the result-code table of the source tree beside it, so
that an installed package explains codes even where the library's share/
folder is missing. Everything else is in pyproject.toml."""
import shutil
from pathlib import Path

from setuptools import setup
from setuptools.command.build_py import build_py

TABLE = Path(__file__).resolve().parent.parent / "tools" / "result_codes.json"


class BuildWithCodeTable(build_py):
    def run(self):
        super().run()
        if TABLE.is_file():
            target = Path(self.build_lib) / "qvpower" / TABLE.name
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(TABLE, target)


setup(cmdclass={"build_py": BuildWithCodeTable})
