#!/usr/bin/env bash
# make demo: boots the daemon twice-over on a demo root and shows what a BSP
# engineer looks at after a crash. The first run builds a root whose blackbox
# holds a new raw dump of a kernel panic; running it again boots the same
# root once more, which now finds no new dump ("Normal").
#
# usage: demo/run.sh BUILD_DIR
set -euo pipefail

build=${1:?usage: demo/run.sh BUILD_DIR}
bin=$(cd "$build/bin" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$build" && pwd)/demo-root
inputs=$root/.inputs
byname=$root/dev/block/by-name

section() { printf '\n== %s\n' "$*"; }

if [ ! -e "$byname/blackbox" ]; then
    section "building the demo root in $root (a boot after a kernel panic)"
    mkdir -p "$byname" "$root/sys/bootinfo" "$root/dev/logfs" "$root/vendor/etc" \
        "$root/data/vendor/diag" "$root/sys/kernel/pmic_pon_log" \
        "$root/vendor/etc/vintf/manifest"
    python3 "$here/make_inputs.py" "$inputs"
    cp "$here/../common/default/vendor.zelkor.hardware.tessel.xml" "$root/vendor/etc/vintf/manifest/"
    cp "$inputs/tzlog.dict" "$root/vendor/etc/tzlog.dict"
    "$bin/tessel-image" blackbox create "$byname/blackbox" --boot-index 42
    "$bin/tessel-image" dump add "$byname/blackbox" --slot 0 --version 0x2000 \
        --time "2026-11-21 09:14:03" --boot-index 41 \
        --section md_kmsg="$inputs/md_kmsg.bin" --section md_pmsg="$inputs/md_pmsg.bin" \
        --section md_ltz="$inputs/md_ltz.txt"
    cp "$inputs/rawdump.img" "$byname/rawdump"
    echo "0x20 PON_KPDPWR" > "$root/sys/bootinfo/powerup_reason"
    echo "0x0 OTHER_HARDRESET" > "$root/sys/bootinfo/poweroff_reason"
    printf 'UEFI Start\nboot_index 42\nUEFI Total : 1830 ms\n' > "$root/dev/logfs/UefiLog0.txt"
    printf 'PON_PBL_STATUS=0xc0\n' > "$root/sys/kernel/pmic_pon_log/pon_log_full"
    "$bin/tesselctl" --root "$root" setprop ro.build.version.incremental demo.20261121
else
    section "booting the demo root in $root again (its dump was taken by the last run)"
fi

# The hardware identifiers the hardware-info module collects; the kernel node
# starts empty at every boot, as the kernel's does. The camera service
# publishes its fuse ids once it runs: the module waits for the front one.
mkdir -p "$root/proc" "$root/sys/devices/soc0" "$root/sys/kernel/hardware_info_to_dump" \
    "$root/sys/class/zk_display/disp-DSI-0" "$root/sys/class/qcom-battery"
printf 'LPDDR5X 12GB vendor 0x06\nUFS 4.0 256GB vendor 0x198\n' > "$root/proc/mv"
echo "2.0" > "$root/sys/devices/soc0/revision"
echo "0x7a3c19e2" > "$root/sys/devices/soc0/serial_number"
echo "557" > "$root/sys/devices/soc0/soc_id"
echo "zk_amoled_6p7 rev 3" > "$root/sys/class/zk_display/disp-DSI-0/panel_info"
echo "ATL 5000mAh" > "$root/sys/class/qcom-battery/fg_vendor"
: > "$root/sys/kernel/hardware_info_to_dump/hardw_info"
"$bin/tesselctl" --root "$root" setprop vendor.camera.sensor.frontMain.fuseID 0x1c22a07f
"$bin/tesselctl" --root "$root" setprop vendor.camera.sensor.rearMain.fuseID 0x3f0051d8

# Log folders for the log manager: more dated modem logs than its limit of
# four, made before the daemon starts.
bsplog=$root/data/vendor/bsplog
for day in 18 19 20 21 22 23; do
    mkdir -p "$bsplog/modem/2026-11-${day}_9-30-0"
    python3 -c 'import sys; sys.stdout.write("modem: link up\n" * 4000)' \
        >"$bsplog/modem/2026-11-${day}_9-30-0/modem.log"
done
section "log folders before the daemon starts"
find "$bsplog" -mindepth 2 -maxdepth 2 | sort

log=$root/.logs
mkdir -p "$log"
"$bin/tessel-peer" --root "$root" --log-config "$here/bsp_log_config.json" 2>"$log/peer.log" &
peer=$!
# The system side is up before the daemon announces itself to it.
for _ in $(seq 1 100); do
    grep -q 'tessel-peer is serving' "$log/peer.log" && break
    sleep 0.1
done
"$bin/tesseld" --root "$root" 2>"$log/tesseld.log" &
daemon=$!
trap 'kill $daemon $peer 2>/dev/null; wait 2>/dev/null || true' EXIT

# The boot run ends with the module removing itself: "Stopped" in the dump.
# A module not loaded yet is listed as stopped too, so first wait for the
# run's last log line.
for _ in $(seq 1 600); do
    if grep -q 'log utils done, quit' "$log/tesseld.log" &&
        "$bin/tesselctl" --root "$root" dump ModuleManager dump 2>/dev/null |
        grep -q 'BSPLogProcessor.*Stopped'; then
        break
    fi
    sleep 0.1
done

section "module status"
"$bin/tesselctl" --root "$root" dump ModuleManager dump
section "vendor.minidump.crash_reason"
"$bin/tesselctl" --root "$root" getprop vendor.minidump.crash_reason
fs() { "$bin/tesselctl" --root "$root" fs "$@"; }
section "files in /data/vendor/diag (tesselctl fs ls, through the file-system service)"
fs ls /data/vendor/diag
if [ "$(fs exists /data/vendor/diag last_kmsg)" = true ]; then
    section "head of last_kmsg (tesselctl fs cat)"
    fs cat /data/vendor/diag last_kmsg | head -n 12
fi
if [ -f "$root/data/vendor/diag/md_history" ]; then
    section "md_history"
    head -n 10 "$root/data/vendor/diag/md_history"
fi
section "crash events sent (<root>/data/vendor/pellora/events.jsonl)"
cat "$root/data/vendor/pellora/events.jsonl" 2>/dev/null || echo "(none)"
section "newest dotting records"
"$bin/tessel-image" inspect "$byname/blackbox" --json |
    python3 -c 'import json, sys
d = json.load(sys.stdin)["blackbox"].get("dotting", {})
for r in (d.get("boot", []) + d.get("ring", []))[-5:]: print(r)'

section "log manager: the configuration the system side sent (demo/bsp_log_config.json)"
cat "$here/bsp_log_config.json"
for _ in $(seq 1 100); do
    grep -q 'LogMgrFileEventListener(' "$log/tesseld.log" && break
    sleep 0.1
done
section "modem after the start-up check: four newest kept, each zipped"
ls -l "$bsplog/modem"
# New wlan logs past its 256 KiB quota, written while the daemon watches. A
# folder is checked when an entry appears in it, so the fourth entry's
# arrival finds the three full ones before it.
for n in 1 2 3 4; do
    mkdir -p "$bsplog/wlan/2026-11-25_10-0-$n"
    head -c 120000 /dev/urandom >"$bsplog/wlan/2026-11-25_10-0-$n/fw.bin"
done
for _ in $(seq 1 100); do
    grep -q 'logManage' "$root/data/peer/reports.jsonl" 2>/dev/null && break
    sleep 0.1
done
section "wlan after four 120 KiB entries (quota 256 KiB): the oldest went"
ls "$bsplog/wlan"
section "clean report sent to the system side (<root>/data/peer/reports.jsonl)"
cat "$root/data/peer/reports.jsonl" 2>/dev/null || echo "(none)"
section "tesselctl dump Halvex.LogManager"
"$bin/tesselctl" --root "$root" dump Halvex.LogManager
if [ "$(fs exists /data/vendor/diag minidump.gz)" = true ]; then
    section "minidump.gz fetched through shared memory (tesselctl fs get) and checked"
    fs get /data/vendor/diag minidump.gz "$build/minidump.gz.fetched"
    echo "$(fs size /data/vendor/diag minidump.gz) bytes on the device side," \
        "$(stat -c %s "$build/minidump.gz.fetched") fetched," \
        "zlib stream $(python3 -c 'import sys,zlib;print(len(zlib.decompress(open(sys.argv[1],"rb").read())))' "$build/minidump.gz.fetched") bytes inflated"
fi
section "blackbox partition size (tesselctl fs partsize, answered by the system side)"
fs partsize demo blackbox
bb() { "$bin/tesselctl" --root "$root" blackbox "$@"; }
section "blackbox service: an event record, a switch, and the ring read back (tesselctl blackbox)"
bb dot demo "" "camera open failed" 2>/dev/null || true
bb config isUartEnable 1
bb config
bb log --type 6 | tail -n 4
# The module's last first-pass item waits up to 100 ms for its property; the
# retries of missing files follow at once.
for _ in $(seq 1 100); do
    grep -q 'CAMERA_REARULTRA failed after wait' "$log/tesseld.log" && break
    sleep 0.1
done
section "hardware info in the kernel node (/sys/kernel/hardware_info_to_dump/hardw_info)"
cat "$root/sys/kernel/hardware_info_to_dump/hardw_info"
section "the same records in the blackbox, decrypted with the development key (tessel-image hwinfo)"
"$bin/tessel-image" hwinfo "$byname/blackbox" --key "$here/../keys/hwinfo_dev_ONLY_private.pem"
