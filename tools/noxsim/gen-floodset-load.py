#!/usr/bin/env python3
"""Writes a large noxsim scenario for measuring noxsim's speed.

The scenario starts MACHINES, then gives COUNT `l2rib floodset add` commands spread over VLANs
and MAC addresses (three MPLS destinations in four, the others local interfaces), and finally
removes one VLAN, or with --delete-all every VLAN (to see what memory comes back, with
noxsim --metrics). With --hw, the hardware information of every via comes first and the
emulated hardware agent runs, so every MPLS destination is configured and programmed.

    tools/noxsim/gen-floodset-load.py 1000000 --machines "filter floodset" > /tmp/load.nox
    time build/default/tools/noxsim/noxsim --quiet /tmp/load.nox
"""

import argparse
import sys

TUNNELS = 1000


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("count", type=int, help="number of add commands")
    parser.add_argument("--machines", default="filter", help="machines to start (default: filter)")
    parser.add_argument("--dests", type=int, default=8, help="destinations per flood set")
    parser.add_argument("--hw", action="store_true",
                        help="publish every via's hardware information and run the hardware agent")
    parser.add_argument("--delete-all", action="store_true",
                        help="remove every VLAN at the end instead of one")
    args = parser.parse_args()

    out = sys.stdout
    out.write(f"# {args.count} flood-set additions, machines: {args.machines}\n")
    if args.hw:
        out.write("hwagent auto on\n")
        for tunnel in range(1, TUNNELS + 1):
            for slot in range(args.dests):
                out.write(f"hwinfo set {tunnel} {16 + slot} {tunnel * 100 + slot} L2Intf{tunnel}\n")
    out.write(f"start {args.machines}\n")
    for i in range(args.count):
        floodset, slot = divmod(i, args.dests)
        vlan = 1 + floodset % 4094
        mac = floodset // 4094
        mac_text = ":".join(f"{(mac >> shift) & 0xff:02x}" for shift in range(40, -8, -8))
        if slot % 4 == 3:
            dest = f"intf/{i}/Ethernet{slot}"
        else:
            dest = f"mpls/{i}/Tunnel{1 + floodset % TUNNELS}/{16 + slot}"
        out.write(f"l2rib floodset add {vlan} {mac_text} {dest}\n")
    vlans = min(args.count // args.dests + (args.count % args.dests > 0), 4094)
    for vlan in range(1, (vlans if args.delete_all else 1) + 1):
        out.write(f"l2rib floodset delvlan {vlan}\n")


if __name__ == "__main__":
    main()
