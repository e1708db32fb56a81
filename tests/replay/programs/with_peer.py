"""Runs a command with PORT replaced by a pseudo-terminal whose other end answers each line, until the command ends."""

import os
import pty
import subprocess
import sys
import threading
import tty

peer, port = pty.openpty()
tty.setraw(port)


def answer():
    line = b""
    while True:
        line += os.read(peer, 1)
        if line.endswith(b"\n"):
            os.write(peer, b"you said " + line)
            line = b""


threading.Thread(target=answer, daemon=True).start()
name = os.ttyname(port)
sys.exit(subprocess.run([word.replace("PORT", name) for word in sys.argv[1:]]).returncode)
