"""An agent that has no descriptors left."""

import os
import resource
import unittest

from harness import System, wait_for

LOOKS = 25  # so many in a row that find the same: what a start opens for a moment is closed, what it keeps is open


def descriptors_of(agent):
    """Those that it has when it has come to rest."""
    looks = []

    def settled():
        looks.append(sorted(os.listdir("/proc/%d/fd" % agent.pid)))
        return len(looks) >= LOOKS and all(look == looks[-1] for look in looks[-LOOKS:])

    wait_for(settled, "the agent's descriptors to settle")
    return len(looks[-1])


class Reload(unittest.TestCase):
    def test_one_that_cannot_be_begun_does_not_hang_the_next_one(self):
        with System() as system:
            descriptors = descriptors_of(system.agent)
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
