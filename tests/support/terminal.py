"""zoctl at a terminal: run on a pseudo-terminal, with keys pressed at the right moment.

Arguments of the test: the emulator's command line and zoctl.exe."""

import os
import pty
import select
import sys
import tty

ZOCTL = sys.argv[1:]
CTRL_C = b"\x03"


def processor_time(process):
    with open(f"/proc/{process}/stat", encoding="utf-8") as stat:
        user, system = stat.read().rpartition(")")[2].split()[11:13]
    return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")


def pressed(keys, is_time, *arguments, out=None, **environment):
    """Presses the keys as soon as is_time says so of what the terminal showed and of the processor time that the
    program took, in seconds; gives the exit code and all that was shown.
    out: a file that gets standard output, which the terminal does then not show."""
    child, terminal = pty.fork()
    if child == 0:
        if out:
            os.dup2(os.open(out, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), 1)
        os.execvpe(ZOCTL[0], [*ZOCTL, *arguments], os.environ | environment)
    if keys != CTRL_C:
        tty.setraw(terminal)  # otherwise Enter would arrive as another key
    done, shown = False, b""
    try:
        while True:
            if not done and is_time(shown, processor_time(child)):
                done = bool(os.write(terminal, keys))
            if done or select.select([terminal], [], [], 0.05)[0]:
                shown += os.read(terminal, 4096)
    except OSError:  # the other side is closed
        pass
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), shown.decode(errors="replace")
