"""The end of a test that can't run here: it is skipped, unless the environment says that it must run.

PIMBSR_LAB_REQUIRED says so of tests that need root and network namespaces, PIMBSR_WEB_REQUIRED of those that
need Chromium, Prometheus or promtool. Each does if it is set, and neither empty nor 0."""

import os
import sys

SKIPPED = 77


def is_required(variable):
    return os.environ.get(variable, "") not in ("", "0")


def end_without(reason, variable):
    """Ends the process with the reason: as skipped, or as failed if the variable requires the test."""
    required = is_required(variable)
    print(f"failed, since {variable} is set: {reason}" if required else f"skipped: {reason}")
    sys.exit(1 if required else SKIPPED)
