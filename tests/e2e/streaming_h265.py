"""The same for H.265."""
import sys

import streaming_udp_tcp

if __name__ == "__main__":
    sys.exit(streaming_udp_tcp.main("h265"))
