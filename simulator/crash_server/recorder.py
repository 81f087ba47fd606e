"""Keeps every post as it came and what was answered, as files for tests to read: NNNN.head, NNNN.body, NNNN.document
(when it could be revealed) and NNNN.reply, counted from 0001."""

import itertools


class Recorder:
    def __init__(self, folder):
        self._folder = folder
        self._numbers = itertools.count(1)
        if folder is not None:
            folder.mkdir(parents=True, exist_ok=True)
            for old in folder.iterdir():
                old.unlink()

    def begin(self, head):
        """The post's number; the other parts are added under it as they come."""
        number = next(self._numbers)
        self.add(number, "head", head.encode("latin-1"))
        return number

    def add(self, number, part, data):
        if self._folder is not None:
            (self._folder / f"{number:04}.{part}").write_bytes(data)
