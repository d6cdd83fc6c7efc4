"""Answers every https request with a redirect.

usage: redirecting_server.py CERTIFICATE KEY LOCATION

Prints its port, then serves until it is ended.
"""

import http.server
import ssl
import sys


class Redirecting(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        self.send_response(307)
        self.send_header("Location", sys.argv[3])
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, *_):
        pass


server = http.server.HTTPServer(("127.0.0.1", 0), Redirecting)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(sys.argv[1], sys.argv[2])
server.socket = context.wrap_socket(server.socket, server_side=True)
print(server.server_port, flush=True)
server.serve_forever()
