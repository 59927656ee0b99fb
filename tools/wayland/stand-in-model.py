#!/usr/bin/python3
# A stand-in OpenAI-compatible model server on 127.0.0.1:11434 for demo pictures.
import json, time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
REPLY = "Could you send me the report by Friday? I'd like to read it before the board meets."
class H(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    def log_message(self, *a): pass
    def do_GET(self):
        body = json.dumps({"object": "list", "data": [{"id": "demo-writer", "object": "model"}]}).encode()
        self.send_response(200); self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(body))); self.end_headers(); self.wfile.write(body)
    def do_POST(self):
        self.rfile.read(int(self.headers.get("Content-Length", "0")))
        self.send_response(200); self.send_header("Content-Type", "text/event-stream")
        self.send_header("Connection", "close"); self.end_headers()
        for i in range(0, len(REPLY), 5):
            ev = {"choices": [{"delta": {"content": REPLY[i:i+5]}}]}
            self.wfile.write(b"data: " + json.dumps(ev).encode() + b"\n\n"); self.wfile.flush(); time.sleep(0.03)
        self.wfile.write(b"data: [DONE]\n\n"); self.wfile.flush()
ThreadingHTTPServer(("127.0.0.1", 11434), H).serve_forever()
