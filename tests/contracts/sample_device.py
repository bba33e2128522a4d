"""What the services of a small device say."""

DEVICE_ID = "5f2b7c1e-8d04-4a39-9c55-0e6a1b7d2f48"

PTP_STATUS = {
    "clock_id": "08-00-11-ff-fe-21-e1-b0",
    "grandmaster_id": "08-00-11-ff-fe-00-00-01",
    "locked": True,
    "offset_ns": -37,
    "mean_path_delay_ns": 1240,
    "profile": {
        "name": "SMPTE ST 2059-2",
        "domain": 127,
        "announce_interval": -2,
        "sync_interval": -3,
        "delay_req_interval": -3,
    },
    "cfgSetting1": 1,
    "cfgSetting2": 2,
    "cfgSetting3": 0,
    "cfgFlag": True,
    "ports": [
        {"portNumber": 1, "state": "SLAVE", "portSetting1": 1, "portSetting2": 0, "portSetting3": 0}
    ],
}

PTP_CONFIGURATION = {
    "cfgSetting1": 1,
    "cfgSetting2": 2,
    "cfgSetting3": 3,
    "cfgFlag": 0,
    "ports": [{"portNumber": 1, "portSetting1": 4, "portSetting2": 5, "portSetting3": 6}],
}

DYNAMIC_INFORMATION = {
    "eths": [
        {
            "name": "eth0",
            "mac": "02:00:00:10:00:01",
            "state": 1,
            "ip": "192.0.2.20",
            "speed_mbps": 25000,
            "sfp": {
                "present": True,
                "vendor": "ACME",
                "part_number": "SFP28-SR",
                "serial": "A1B2C3",
                "temperature_c": 41.5,
                "tx_power_dbm": -2.25,
                "rx_power_dbm": -3.1,
            },
        }
    ],
    "uptime_s": 86400,
    "temperature_c": 51.5,
}

SESSION_CONFIGURATION = {
    "id": 7,
    "nmos_id": "b1d2a7f0-3c55-4e0e-8a1f-2f90c1d5e6a3",
    "audio": [
        {
            "id": 71,
            "class": "sender",
            "state": "Enabled",
            "type": "audio",
            "redundant-type": "primary",
            "codec": "L24",
            "vlan": {"id": 100, "priority": 5, "tpid": 33024},
            "source": 5004,
            "destination": 5004,
            "payload-type": 97,
            "sscr": {"type": "manual", "value": 3735928559},
            "local": "192.0.2.20",
            "transport": "239.1.1.1",
            "dscp": 34,
            "ttl": 64,
            "channels": [{"type": 11, "string": "auto"}, {"type": 11, "string": "right"}],
        }
    ],
    "video": [
        {
            "id": 72,
            "class": "receiver",
            "state": "Paused",
            "type": "video",
            "redundant-type": "none",
            "codec": "raw",
            "sscr": 1234,
            "transport": "239.1.1.2",
            "timing-mode": "2059",
            "initBufDelay": 5,
            "minWrRdPtrThresh": 1,
            "maxWrRdPtrThresh": 9,
            "rtpPktsPerFrame": 4320,
            "tributary": {"type": "MULTI-2SI", "index": 2},
        }
    ],
}

SESSION_STATUS = {
    "id": 7,
    "nmos_id": "b1d2a7f0-3c55-4e0e-8a1f-2f90c1d5e6a3",
    "device_id": DEVICE_ID,
    "alarms": [{"severity": "major", "description": "Secondary path lost", "type": 12}],
    "stream": [
        {
            "id": 71,
            "alarms": [{"severity": "warning", "description": "Late packets", "type": 3}],
        },
        {"id": 72},
    ],
}

# Every number at the end of its range, and a text beyond ASCII.
EXTREME_STATUS = {
    "id": 2**64 - 1,
    "nmos_id": "Bühne \U0001f3a5",
    "device_id": DEVICE_ID,
    "alarms": [{"severity": "", "description": 'a "quoted"\nline', "type": -(2**31)}],
    "stream": [{"id": 2**64 - 1, "alarms": [{"severity": "x", "type": 2**31 - 1}]}],
}

EXTREME_PTP_STATUS = {
    "offset_ns": -(2**63),
    "mean_path_delay_ns": 2**63 - 1,
    "profile": {"domain": 255, "announce_interval": -128, "sync_interval": 127},
    "cfgSetting1": 255,
    "ports": [{"portNumber": 65535, "portSetting3": 255}, {}],
}

ADVERTISEMENT = {"id": 9, "name": "studio 2", "sdp": "v=0\r\ns=studio 2\r\n"}
