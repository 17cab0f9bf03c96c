"""An agent that has no descriptors left."""

import os
import resource
import unittest

from harness import System


class Reload(unittest.TestCase):
    def test_one_that_cannot_be_begun_does_not_hang_the_next_one(self):
        with System() as system:
            descriptors = len(os.listdir("/proc/%d/fd" % system.agent.pid))
            before = resource.prlimit(system.agent.pid, resource.RLIMIT_NOFILE)
            # One for the connection of vrxctl, none for what the check needs.
            resource.prlimit(system.agent.pid, resource.RLIMIT_NOFILE, (descriptors + 1, before[1]))
            done = system.vrxctl("reload", check=False)
            self.assertEqual(done.returncode, 78, done.stderr)
            self.assertIn("the configuration cannot be checked: ", done.stderr)
            resource.prlimit(system.agent.pid, resource.RLIMIT_NOFILE, before)
            self.assertEqual(system.vrxctl("reload"), "")


if __name__ == "__main__":
    unittest.main()
