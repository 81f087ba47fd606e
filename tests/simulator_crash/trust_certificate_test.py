"""trust_certificate: the arguments are the command that runs it."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

from served import SERVER  # also puts the server's modules on the path

import certificates

COMMAND = sys.argv[1:]
DONE, FAILED, USAGE, NOT_THERE = 0, 1, 2, 7


class TrustCertificate(unittest.TestCase):
    def test_adds_and_removes(self):
        def run(*arguments):
            return subprocess.run([*COMMAND, *arguments], stderr=subprocess.DEVNULL, check=False).returncode

        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            certificates.prepare(folder)
            good = f"Z:{folder}/certificate.der"
            steps = [("add", DONE), ("check", DONE), ("remove", DONE), ("check", NOT_THERE)]
            for verb, status in steps:
                self.assertEqual(run(verb, good), status, verb)
            self.assertEqual(run("add", f"Z:{SERVER}/README.md"), FAILED)
            self.assertEqual(run("trust", good), USAGE)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
