# Free ports, and whether somebody has taken one.

# free_port tcp|udp COUNT: an even port of 127.0.0.1 that is free together with the COUNT-1 behind it.
free_port() {
  python3 - "$1" "$2" <<'PYTHON'
import random
import socket
import sys

kind = socket.SOCK_STREAM if sys.argv[1] == "tcp" else socket.SOCK_DGRAM
count = int(sys.argv[2])


def is_free(port):
    with socket.socket(socket.AF_INET, kind) as probe:
        try:
            probe.bind(("127.0.0.1", port))
            return True
        except OSError:
            return False


for _ in range(200):
    port = random.randrange(20000, 30000, 2)  # below the range from which the kernel picks
    if all(is_free(port + i) for i in range(count)):
        print(port)
        sys.exit(0)
sys.exit("no free port")
PYTHON
}

# is_bound tcp|udp PORT: somebody listens there. A look at the kernel's table, so that no link is made for it.
is_bound() {
  local state=07 row
  [[ $1 == udp ]] || state=0A
  row=$(printf ':%04X [0-9A-F]+:0000 %s' "$2" "$state")
  grep -Eq "$row" "/proc/net/$1"
}
