import os
import shutil
from pathlib import Path

import pytest

pytest_plugins = ["pytester"]

SOURCE_DIR = Path(os.environ.get("PC_SOURCE_DIR", Path(__file__).resolve().parents[2]))
SCENARIOS = SOURCE_DIR / "tests" / "scenarios"
EXAMPLES = SOURCE_DIR / "examples"


@pytest.fixture
def scenarios(pytester):
    """Copies scenario files of the test suite into the pytester folder under new names:
    scenarios(mismatch="test_failing.yaml")."""
    def copy(**renames):
        for source, target in renames.items():
            shutil.copyfile(SCENARIOS / f"{source}.yaml", pytester.path / target)
    return copy
