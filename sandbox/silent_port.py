#!/usr/bin/env python3
"""Takes TCP connections and never says a word. usage: silent_port.py ADDRESS PORT PIDFILE"""
import os
import select
import socket
import sys

server = socket.create_server((sys.argv[1], int(sys.argv[2])))
with open(sys.argv[3], "w") as file:
    file.write(f"{os.getpid()}\n")
taken = []
while True:
    select.select([server], [], [])
    taken.append(server.accept())
