#!/usr/bin/env python3
"""Serves real files over loopback while `vormelt-cli files --live HOST` listens and tcpdump
records, fetches each with curl, then checks the written bodies against the served ones, live
and again from tcpdump's capture with --read. On ::1 (run it in a network namespace of its own)
`packets --live ::1 --write` and `stats --live ::1` listen too, and must see the packets tshark
sees in tcpdump's capture: the same addresses and ports, and as many.
Exit 0 passed, 1 failed, 77 cannot run here.

Without HOST it runs on 127.0.0.1, then on ::1 in a network namespace of its own.
Usage: files_loopback.py VORMELT_CLI WORK_DIR [HOST]"""
import collections, gzip, hashlib, http.server, json, os, random, signal, socket, socketserver
import subprocess, sys, threading, time

CLI, WORK = sys.argv[1], sys.argv[2]
HOST = sys.argv[3] if len(sys.argv) > 3 else None
V6 = ":" in (HOST or "")
URL_HOST = f"[{HOST}]" if V6 else HOST
rand = random.Random(11)
PLAIN = bytes(rand.getrandbits(8) for _ in range(180_000))
CHUNKED = b"".join(b"line %d of a chunked page\n" % i for i in range(3000))
PAGE = b"<html><body>" + b"compressible text " * 4000 + b"</body></html>"
GZIPPED = gzip.compress(PAGE)
CLOSED = bytes(rand.getrandbits(8) for _ in range(70_000))


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def send(self, status, headers, body):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        if self.path == "/plain":
            self.send(200, [("Content-Type", "application/pdf"), ("Content-Length", str(len(PLAIN)))], PLAIN)
        elif self.path == "/chunked":
            self.send_response(200)
            self.send_header("Content-Type", "text/plain")
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            for at in range(0, len(CHUNKED), 7000):
                part = CHUNKED[at:at + 7000]
                self.wfile.write(b"%x\r\n%s\r\n" % (len(part), part))
            self.wfile.write(b"0\r\n\r\n")
        elif self.path == "/gzip":
            self.send(200, [("Content-Type", "text/html"), ("Content-Encoding", "gzip"),
                            ("Content-Length", str(len(GZIPPED)))], GZIPPED)
        elif self.path == "/closed":
            # HTTP/1.0 without a length: the body ends when the connection closes.
            self.wfile.write(b"HTTP/1.0 200 OK\r\nContent-Type: image/png\r\n\r\n" + CLOSED)
            self.close_connection = True
        elif self.path == "/partial":
            self.send(206, [("Content-Range", "bytes 0-9/100"), ("Content-Length", "10")], PLAIN[:10])
        else:
            self.send(404, [("Content-Length", "9")], b"not found")


def md5(data):
    return hashlib.md5(data).hexdigest()


EXPECTED = {md5(PLAIN): "pdf", md5(CHUNKED): "txt", md5(GZIPPED): "html.gz", md5(CLOSED): "png"}


def written(out_dir, names=None):
    found = {}
    for name in os.listdir(out_dir):
        if names is not None and name not in names:
            continue
        with open(os.path.join(out_dir, name), "rb") as f:
            found[md5(f.read())] = name
    return found


def check(label, out_dir, names=None):
    found = written(out_dir, names)
    ok = True
    for digest, extension in EXPECTED.items():
        name = found.get(digest)
        if not name or not name.endswith("." + extension):
            print(f"{label}: the .{extension} body is missing or misnamed; written: {sorted(found.values())}")
            ok = False
    if len(found) != len(EXPECTED):
        print(f"{label}: {len(found)} files written, {len(EXPECTED)} expected (404 and 206 write nothing)")
        ok = False
    return ok


def ours(manifest_path, port):
    """The manifest's records of bodies our server sent. The live run hears all of loopback, and
    tests running beside this one fetch pages of their own there."""
    try:
        with open(manifest_path) as manifest:
            lines = manifest.read().splitlines()
    except FileNotFoundError:
        return []
    records = []
    for line in lines:
        try:
            record = json.loads(line)
        except ValueError:
            continue  # a line still being written
        if record.get("sourcePort") == port:
            records.append(record)
    return records


def packet_sockets_on_lo():
    """Inodes of the packet sockets bound to lo and running, from /proc/net/packet."""
    index = int(open("/sys/class/net/lo/ifindex").read())
    inodes = set()
    with open("/proc/net/packet") as table:
        next(table)
        for row in table:
            fields = row.split()
            if int(fields[4]) == index and fields[5] == "1":
                inodes.add(fields[8])
    return inodes


def wait_capturing(pid, seconds):
    """True once `pid` holds a packet socket that is bound to lo and running."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            held = {os.readlink(f"/proc/{pid}/fd/{fd}") for fd in os.listdir(f"/proc/{pid}/fd")}
        except OSError:
            held = set()
        if any(f"socket:[{inode}]" in held for inode in packet_sockets_on_lo()):
            return True
        time.sleep(0.02)
    return False


def tshark(pcap, fields, filter):
    run = subprocess.run(["tshark", "-r", pcap, "-Y", filter, "-T", "fields"] + sum((["-e", f] for f in fields), []),
                         capture_output=True, text=True, timeout=60)
    return collections.Counter(run.stdout.splitlines())


def same_as_tshark(pcap, port):
    """Our --write output and tcpdump's capture of the same traffic hold the same packets (source,
    destination, ports), `packets` listed them with those addresses and ports, and `stats`
    counted each of them."""
    fields = ["ipv6.src", "ipv6.dst", "tcp.srcport", "tcp.dstport"]
    wanted = tshark(pcap, fields, f"tcp.port == {port}")
    ours = tshark(os.path.join(WORK, "sockets.pcap"), fields, f"tcp.port == {port}")
    ok = True
    if not wanted or ours != wanted:
        print("packets --write differs from tcpdump (tshark on both):", wanted, ours)
        ok = False
    listed = collections.Counter()
    with open(os.path.join(WORK, "packets.txt"), errors="replace") as rows:
        for row in rows:
            words = row.split()
            if str(port) in words and "::1" in words:
                listed[row.count("::1")] += 1
    if listed != collections.Counter({2: sum(wanted.values())}):
        print("packets listed", dict(listed), "rows from ::1 to ::1 on our port; tshark saw", sum(wanted.values()))
        ok = False
    with open(os.path.join(WORK, "stats.json")) as table:
        records = json.load(table)
    total = sum(wanted.values())
    counted = [r for r in records if r.get("address") == "::1"]
    if len(counted) != 1 or int(counted[0].get("packetsFrom", -1)) != total:
        print("stats counted", counted, "for ::1; tshark saw", total, "packets")
        ok = False
    return ok


def main():
    if os.geteuid() != 0:
        print("needs root to capture on loopback")
        return 77
    class Server(socketserver.ThreadingTCPServer):
        address_family = socket.AF_INET6 if V6 else socket.AF_INET

    server = Server((HOST, 0), Handler)
    server.daemon_threads = True
    port = server.server_address[1]
    threading.Thread(target=server.serve_forever, daemon=True).start()
    pcap = os.path.join(WORK, "loopback.pcap")
    live_out, read_out = os.path.join(WORK, "live"), os.path.join(WORK, "read")
    dump = subprocess.Popen(["tcpdump", "-i", "lo", "-U", "-B", "16384", "-w", pcap, f"tcp port {port}"],
                            stderr=subprocess.DEVNULL)
    # The default quiet time: a loaded machine may stall a sender for longer than a shorter one,
    # and the run below waits for the files, not for the time.
    live = subprocess.Popen([CLI, "files", "--live", HOST, "--out", live_out, "--template", "%FCS",
                             "--ack-timeout-ms", "1000", "--seconds", "120",
                             "--manifest", os.path.join(WORK, "live.jsonl")],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    reader = threading.Thread(target=lambda: live.stdout.read(), daemon=True)
    reader.start()
    listeners = [dump, live]
    if V6:
        listeners += [subprocess.Popen([CLI, "packets", "--live", HOST, "--write", os.path.join(WORK, "sockets.pcap")],
                                       stdout=open(os.path.join(WORK, "packets.txt"), "wb"), stderr=subprocess.DEVNULL),
                      subprocess.Popen([CLI, "stats", "--live", HOST, "--table", "ip", "--format", "json"],
                                       stdout=open(os.path.join(WORK, "stats.json"), "wb"), stderr=subprocess.DEVNULL)]
    manifest_path = os.path.join(WORK, "live.jsonl")
    # All must be capturing before the first request, however long starting takes here.
    for process in listeners:
        if not wait_capturing(process.pid, 30):
            print(f"pid {process.pid} never started capturing on lo")
            for p in listeners:
                p.kill()
            return 1
    for path in ("plain", "chunked", "gzip", "closed", "partial", "missing"):
        subprocess.run(["curl", "-s", "-o", os.devnull, f"http://{URL_HOST}:{port}/{path}"], timeout=30)
    # Stopped once it has written what it was sent (or after a minute, to report what is missing)
    # and the 206 and 404 streams have had their quiet time and a pass: a stop drops streams
    # still filling, which must not pass for "nothing written".
    sent = time.monotonic()
    deadline = sent + 60
    while (len(ours(manifest_path, port)) < len(EXPECTED) or time.monotonic() < sent + 1.3) \
            and live.poll() is None and time.monotonic() < deadline:
        time.sleep(0.05)
    live.send_signal(signal.SIGINT)
    err = live.stderr.read()
    live.wait(timeout=30)
    reader.join(timeout=10)
    for process in listeners[:1] + listeners[2:]:
        process.send_signal(signal.SIGINT)
        process.wait(timeout=30)
    server.shutdown()
    if live.returncode != 0:
        print("live run failed:", live.returncode, err.decode(errors="replace"))
        return 1
    records = ours(manifest_path, port)
    ok = check("live", live_out, {os.path.basename(r["path"]) for r in records})
    if not all(r["complete"] and r["md5"] in EXPECTED for r in records):
        print("live manifest:", records)
        ok = False
    read = subprocess.run([CLI, "files", "--read", pcap, "--out", read_out, "--template", "%FCS"],
                          capture_output=True, timeout=60)
    ok = check("read", read_out) and ok
    if V6:
        ok = same_as_tshark(pcap, port) and ok
    print("passed" if ok else "failed")
    return 0 if ok else 1


def both():
    """127.0.0.1 here, then ::1 in a namespace of its own (skipped without tshark to compare)."""
    status = subprocess.run([sys.executable, __file__, CLI, os.path.join(WORK, "v4"), "127.0.0.1"]).returncode
    if status != 0 or subprocess.run(["which", "tshark"], capture_output=True).returncode != 0:
        return status
    return subprocess.run(["unshare", "--net", "sh", "-c", 'ip link set lo up && exec "$@"', "-",
                           sys.executable, __file__, CLI, os.path.join(WORK, "v6"), "::1"]).returncode


if __name__ == "__main__":
    if HOST is None:
        sys.exit(both())
    os.makedirs(WORK, exist_ok=True)
    sys.exit(main())
