"""A client that knows nothing of the library: sends the bytes of standard input to the service and prints the reply."""
import socket
import sys

with socket.socket(socket.AF_UNIX) as service:
    service.connect("/tmp/kvo_hws/cmd_sock")
    service.sendall(sys.stdin.buffer.read())
    if "--half-close" in sys.argv:
        service.shutdown(socket.SHUT_WR)
    while piece := service.recv(65536):
        sys.stdout.buffer.write(piece)
