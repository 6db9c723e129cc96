"""gvxd --check-config: silent on the shipped configuration; each of many broken ones gives its exit code and names the
line. Nothing is written, and no port is opened."""
import json
import os
import shutil
import subprocess

import gvx_e2e as e2e

CONF, NAT, NET = "zvs_gvx.conf", "zvs_gvx_nat.conf", "net.xml"
ALARM, FILE, MAPPING = "alarm/gvx_nvt_alarm_description.xml", "plugins/file.json", "plugins/file_alarms.xml"
RTSP_MAPPING, ABILITY, LOG, MODES = "plugins/rtsp_alarms.xml", "other/device_ability.xml", "log.xml", "network.conf"
CLOUD, UNIT = "root/home/zvs_common/cloudconfig.xml", "root/home/zvs_common/config/common.xml"
# file; what stands there, and what is put in its place (None: the file is taken away); exit code; what else the line says
ROWS = [
    (CONF, "GVX_LISTEN_PORT=9600", "GVX_LISTEN_PORT=x", 1, "[9600] holds"),
    (CONF, "GVX_LISTEN_PORT=9600", "GVX_LISEN_PORT=9600", 1, "GVX_LISTEN_PORT is the nearest"),
    (CONF, "[MEDIA]", "[MEDAI]", 1, "MEDIA is the nearest"),
    (CONF, "MEDIA_BLOCK_NUM=8192", "MEDIA_BLOCK_NUM=lots", 1, "64 to 1048576; [8192] holds"),
    (CONF, "MEDIA_BLOCK_NUM=8192", "MEDIA_BLOCK_NUM=2", 1, "[64] holds"),
    (CONF, "TRANSMISSION_THREAD_NUM=0", "TRANSMISSION_THREAD_NUM=999", 1, "[64] holds"),
    (CONF, "MAX_SOCKET_SIZE=1000", "MAX_SOCKET_SIZE=abc", 1, "[1000] holds"),
    (CONF, "OTHERS_NSS_TIMEOUT=30", "OTHERS_NSS_TIMEOUT=-1", 1, "0 to 86400; [30] holds"),
    (CONF, "MU_NSS_TIMEOUT=10", "MU_NSS_TIMEOUT=-1", 1, "[10] holds"),
    (CONF, "GVX_MEDIA_SEND_UDP=", "GVX_MEDIA_SEND_UDP=47000:47010", 1, "ranges <from>-<to>"),
    (CONF, "MAX_CAPS=128", "MAX_CAPS=500", 1, "1 to 300; [128] holds"),
    (CONF, "GVX_MESSAGE_IP=127.0.0.1", "GVX_MESSAGE_IP=01.2.3.4", 1, "an IPv4 address; [127.0.0.1] holds"),
    (CONF, "IS_SUPPORT_VSP=0", "IS_SUPPORT_VSP=00", 1, "0 or 1"),
    (CONF, "LogLevel=6", "LogLevel=abc", 1, "[6] holds"),
    (CONF, "GB35114_KEYLABEL=gvx001", "GB35114_KEYLABEL=a_c", 1, "counts as not set"),
    (CONF, "LIVE_VIEW_VIDEO=recvonly", "LIVE_VIEW_VIDEO=both", 1, "sendonly, recvonly or sendrecv"),
    (CONF, "GVX_LINK_DEAD_TIME=30000", "GVX_LINK_DEAD_TIME=15000", 1, "[20000] holds"),
    (CONF, "GVX_LINK_PEERS=", "GVX_LINK_PEERS=10.0.0.0/8,here", 1, "; what is allowed of it holds"),
    (CONF, "GVX_LINK_TLS=0", "GVX_LINK_TLS=1", 2, "GVX_LINK_TLS needs"),
    (CONF, "GVX_LOG_FILE=", "GVX_LOG_FILE=/dev/null/gvxd.log", 1, "GVX_LOG_FILE names a file that cannot be written"),
    (CONF, "HISTORY_SWEEP_PERIOD=60", "HISTORY_SWEEP_PERIOD", 1, "no comment, section or setting"),
    (CONF, "BAND_WIDTH=256", "MAX_CAPS=1", 1, "stands again; line "),
    (CONF, "BAND_WIDTH=256", "NODE_CODE=7", 1, "edits look for it in [PLATFORM]"),
    (CONF, "BAND_WIDTH=256", "SUBNET_NAT_IP_LIST=", 1, "looked for in zvs_gvx_nat.conf"),
    (CONF, "; Settings of", "GVX_LISTEN_PORT=1", 1, "loses its first character"),
    (CONF, "GVX_PLUGIN_LIST=file,rtsp", "GVX_PLUGIN_LIST=nothing", 2, "gvx_plugin_nothing.so"),
    (CONF, None, None, 2, "No such file"),
    (NAT, "SUBNET_NAT_IP_LIST=", "SUBNET_NAT_IP_LIST=10.0.0.0/255.0.0.0;bad", 1, "[bad] is no <ip>/<mask>"),
    (NAT, None, None, 2, "No such file"),
    (NET, "<NetElementID>GVX#001", "<NetElementID>a b", 2, "no link identifier"),
    (NET, "<NetElementID>GVX#001", "<NetElementID>SCU#001", 1, "another kind of element"),
    (NET, "<NetElementID>GVX#001", "<NetElementID>", 1, "[GVX#001] holds"),
    (NET, "</NetElements>", "</Net>", 2, "no well-formed XML"),
    (NET, None, None, 2, "No such file"),
    (ALARM, "</AlarmInfoList>", "</AlarmInfo>", 2, "no well-formed XML"),
    (ALARM, "<AlarmInfo>\n    <AlarmType>ALARM_DISK_FULL<", "<AlarmInfo>\n    <AlarmType>ALARM_DISK_FAULT<", 2, "stands twice"),
    (MAPPING, "</AlarmInfoList>", "", 2, "no well-formed XML"),
    (FILE, "}", "]", 2, "Line "),
    (FILE, '"demo.h264"', '"/nowhere.h264"', 2, "/nowhere.h264"),
    (CONF, "GVX_PLUGIN_LIST=file,rtsp", "GVX_PLUGIN_LIST=file;rtsp", 1, "[file] ends at the ';'"),
    (NET, "<NetElementID>GVX#001", "<NetElementID>GVX#", 1, "no number of a node"),
    (ALARM, "<AlarmMode>Device</AlarmMode>", "<AlarmMod>Device</AlarmMod>", 1, "AlarmMode is the nearest"),
    (ALARM, "<AlarmMode>Device", "<AlarmMode>Devic", 1, "Device is the nearest"),
    (MAPPING, "<ACTIVE>start</ACTIVE>", "<ACTVE>start</ACTVE>", 1, "ACTIVE is the nearest"),
    (RTSP_MAPPING, "<AlarmCode>connection_lost", "<AlarmCode>conection_lost", 1, "connection_lost is the nearest"),
    (RTSP_MAPPING, "<AlarmType>ALARM_NETWORK_INTERRUPT", "<AlarmType>ALARM_NOSUCH", 1, "not among the types"),
    ("plugins/rtsp_paths.json", "", "[]", 1, "no path"),
    ("plugins/rtsp_profiles/p.json", "", '{"mian":"/x"}', 1, "\"mian\" is not known"),
    (ABILITY, '<Device Id="DVS"', '<Devce Id="DVS"', 1, "<Devce>"),
    (ABILITY, 'VideoInNum="1"', 'VideoNum="1"', 1, "no VideoInNum"),
    (LOG, "<NodeCode>001</NodeCode>", "<NodeCod>001</NodeCod>", 1, "NodeCode is the nearest"),
    (LOG, "<DebugLogSwitch>False", "<DebugLogSwitch>Flase", 1, "False is the nearest"),
    (LOG, None, None, 1, "there is none"),
    (CLOUD, "<inited>true", "<inited>treu", 1, "true is the nearest"),
    (CLOUD, "<inited>true</inited>", "<initd>true</initd>", 1, "inited is the nearest"),
    (CLOUD, "<RunMode>0", "<RunMode>7", 1, "none of 0,1,2"),
    (UNIT, "<SignalIpAddress></SignalIpAddress>", "<SignalIPAddres></SignalIPAddres>", 1, "SignalIpAddress is the nearest"),
    (MODES, "", "NETWORK_MOD=standard", 1, "NETWORK_MODE is the nearest"),
    (MODES, "", "NETWORK_MODE=standrd", 1, "standard is the nearest"),
    (MODES, "", "EXTERNAL_API=lo\nINTERNAL_API=nosuch0", 1, "no network interface"),
    (LOG, "</Log>", "", 1, "no well-formed XML"),
    ("log_sftp.conf", "", "no json", 1, "damaged"),
]
# Faults of a file as a whole, and those whose line the parser tells.
WITHOUT_LINE = ("gvx_plugin_nothing.so", "Line ", "/nowhere.h264", "GVX_LINK_TLS needs", "damaged", "No such file", "no well-formed XML", "there is none",
                "no path", "\"mian\" is not known", "no network interface")


def check_config(options, conf, root):
    done = subprocess.run([options.gvxd, "--check-config", "--config-dir", conf, "--plugin-dir", options.plugin_dir],
                          env={**os.environ, "GVX_ROOT": str(root)}, capture_output=True, text=True, timeout=60 * options.slow,
                          check=False)
    return done.returncode, done.stdout + done.stderr


def check_start(options, folder, stack):
    """A start tells the same, in the log's form from its first line on."""
    gateway = e2e.Gateway(options, folder / "start", settings={"GVX_LOG_FORMAT": "json"})
    (gateway.conf / MODES).write_text("NETWORK_MODE=standrd")
    stack.callback(gateway.kill)
    gateway.start()
    gateway.stop()
    texts = [json.loads(line)["text"] for line in gateway.lines()]
    e2e.check(any("standard is the nearest" in text for text in texts), f"a start says nothing of {MODES}: {texts}")


def run(options, folder, stack):
    for root in (options.conf + "/root", folder / "no_root"):
        told = check_config(options, options.conf, root)
        e2e.check(told == (0, ""), f"the shipped configuration gives {told}")
    for number, (name, old, new, code, says) in enumerate(ROWS):
        conf = folder / str(number)
        shutil.copytree(options.conf, conf)
        line = ""
        if old is None:
            (conf / name).unlink()
        else:
            (conf / name).parent.mkdir(parents=True, exist_ok=True)
            text = (conf / name).read_text() if old else ""
            at = text.index(old)
            (conf / name).write_text(text.replace(old, new, 1))
            line = "" if says in WITHOUT_LINE else f":{text.count(chr(10), 0, at) + 1}: "
        before = {path: path.read_bytes() for path in conf.rglob("*") if path.is_file()}
        got, text = check_config(options, conf, conf / "root")
        named = says if says in ("gvx_plugin_nothing.so", "/nowhere.h264") or says.startswith("GVX_LOG") else f"{conf}/{name}{line}"
        e2e.check(got == code and any(named in row and says in row for row in text.splitlines()),
                  f"{name}, {new}: exit code {got}, not {code}, or no line has {named!r} and {says!r}: {text}")
        e2e.check(before == {path: path.read_bytes() for path in conf.rglob("*") if path.is_file()}, f"{name}: written to")
    check_start(options, folder, stack)
    print(f"{len(ROWS)} broken configurations named")


if __name__ == "__main__":
    e2e.main(run)
