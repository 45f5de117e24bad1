"""What a test may have of this machine beside its networks."""

import os
import subprocess
import tempfile
from pathlib import Path

import pytest


def not_available(reason):
    """Ends a test that this machine or this user does not let run."""
    text = f"not to be had here: {reason}"
    if os.environ.get("CI") == "true":
        pytest.fail(text + " (in CI that is a failure)")
    pytest.skip(text)


def own_mounts():
    """The words before a command that mounts something, so that nobody else sees its mounts.

    Where the root is no mount point, as in a mere chroot, mounts cannot be made private; it is
    tried then whether they are."""
    if subprocess.run(["unshare", "--mount", "true"], capture_output=True, timeout=20,
                      check=False).returncode == 0:
        return ["unshare", "--mount", "--"]
    words = ["unshare", "--mount", "--propagation", "unchanged", "--"]
    with tempfile.TemporaryDirectory(prefix="lan-mount-") as folder:
        trial = subprocess.Popen(
            [*words, "sh", "-c", 'mount -t tmpfs lan "$0" && : >"$0/seen" && echo mounted && read _;'
             ' umount "$0"', folder],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        mounted = trial.stdout.readline() != ""
        seen = Path(folder, "seen").exists()
        problem = trial.communicate("\n", timeout=20)[1].strip()
    if not mounted:
        not_available(f"mounts of a test's own: {problem}")
    if seen:
        not_available("mounts of a test's own: they show outside of this chroot")
    return words
