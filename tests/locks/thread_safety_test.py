#!/usr/bin/env python3
"""Clang holds the locks of the host to their annotations (host/base/mutex.h): what is guarded is touched with its mutex
held, a function that wants a mutex held is called so, and locks are taken in one order.

Whatever build uses Clang looks at all sources so: warnings_test.py. Here is shown that it finds what it is to find.
"""
import os
import pathlib
import re
import subprocess
import unittest

SOURCE = pathlib.Path(os.environ.get("TAMREL_SOURCE_DIR") or pathlib.Path(__file__).resolve().parents[2])
CHECKED = ("host/", "tools/")
ANNOTATIONS = "host/base/mutex.h"
CHECKS = ["-Wthread-safety", "-Wthread-safety-beta", "-Werror"]  # beta: the order of locks
BARE_LOCK = re.compile(r"\bstd::(?:\w*mutex|\w+_lock|lock_guard|condition_variable\w*)\b")
DECLARED_MUTEX = re.compile(r"^\s*(?:mutable )?Mutex (\w+)(?: ACQUIRED_BEFORE\([^)]*\))?;", re.MULTILINE)
# The same code is right, and wrong without one word of it.
EXAMPLE = """
#include "host/base/mutex.h"

class Counter {
public:
    void add() {
        const vrx::MutexLock lock(m_mutex);
        increase();
    }
    void addAfterPause() {
        vrx::MutexLock lock(m_mutex);
        m_changed.wait(lock, [this]() REQUIRES(m_mutex) { return m_count > 0; });
        {
            const vrx::MutexUnlock unlocked(m_mutex);
            pause();
        }
        increase();
        lock.unlock();
        m_changed.notify_one();
    }
    void addInOrder() {
        const vrx::MutexLock first(m_first);
        const vrx::MutexLock lock(m_mutex);
        increase();
    }

private:
    void increase() REQUIRES(m_mutex) { ++m_count; }
    void pause() EXCLUDES(m_mutex) {}

    vrx::Mutex m_first ACQUIRED_BEFORE(m_mutex);
    vrx::Mutex m_mutex;
    vrx::ConditionVariable m_changed;
    int m_count GUARDED_BY(m_mutex) = 0;
};

Counter counter;
"""


def clang(arguments, text=None):
    return subprocess.run(["clang++", *arguments], input=text, capture_output=True, text=True, check=False)


class ThreadSafetyTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "--", "*.h", "*.cpp"],
                                cwd=SOURCE, check=True, capture_output=True, text=True).stdout.split("\n")
        cls.texts = {name: (SOURCE / name).read_text(encoding="utf-8") for name in listed
                     if name.startswith(CHECKED) and (SOURCE / name).is_file()}

    def test_locks_are_annotated_ones(self):
        bare = {name: BARE_LOCK.findall(text) for name, text in self.texts.items() if name != ANNOTATIONS}
        self.assertEqual({name: found for name, found in bare.items() if found}, {})

    def test_every_mutex_guards_something(self):
        self.assertEqual([f"{name}: {mutex}" for name, text in self.texts.items() for mutex in DECLARED_MUTEX.findall(text)
                          if not re.search(rf"GUARDED_BY\({mutex}\)|REQUIRES\({mutex}\)", text)], [])


class CheckTest(unittest.TestCase):
    """The check itself: it takes what is right and finds each kind of fault."""

    def errors_with(self, part, instead):
        self.assertIn(part, EXAMPLE)
        return self.errors_of(EXAMPLE.replace(part, instead, 1))

    @staticmethod
    def errors_of(text):
        return clang([*CHECKS, f"-I{SOURCE}", "-std=c++17", "-x", "c++", "-fsyntax-only", "-"], text).stderr

    def test_what_is_right_passes(self):
        self.assertEqual(self.errors_of(EXAMPLE), "")

    def test_a_guarded_member_needs_its_mutex(self):
        self.assertIn("writing variable 'm_count' requires holding mutex 'm_mutex'",
                      self.errors_with("void increase() REQUIRES(m_mutex)", "void increase()"))

    def test_a_condition_reads_with_the_mutex(self):
        self.assertIn("reading variable 'm_count' requires holding mutex 'm_mutex'",
                      self.errors_with("[this]() REQUIRES(m_mutex)", "[this]()"))

    def test_a_function_that_wants_the_mutex_is_called_with_it(self):
        self.assertIn("calling function 'increase' requires holding mutex 'm_mutex'",
                      self.errors_with("const vrx::MutexLock lock(m_mutex);", ""))

    def test_a_function_that_wants_the_mutex_free_is_called_without_it(self):
        self.assertIn("cannot call function 'pause' while mutex 'm_mutex' is held",
                      self.errors_with("const vrx::MutexUnlock unlocked(m_mutex);", ""))

    def test_locks_are_taken_in_their_order(self):
        first, second = "const vrx::MutexLock first(m_first);", "const vrx::MutexLock lock(m_mutex);"
        self.assertIn("mutex 'm_first' must be acquired before 'm_mutex'",
                      self.errors_with(f"{first}\n        {second}", f"{second}\n        {first}"))


if __name__ == "__main__":
    unittest.main()
