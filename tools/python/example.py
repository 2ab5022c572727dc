from zokril import Runner, LineError  # python3 tools/python/example.py, after a native build
with Runner(["--sim"]) as rig:  # rilproxy-host --interactive --format json --quiet --sim
    rig.post("EVENT_SETUP_DATA_CALL_REQ", size=704, text={0: "16", 128: "0", 256: "ims"}, i32={644: 2, 648: 1})
    f = rig.wait("EVENT_SETUP_DATA_CALL_RESP")["fields"]
    print(f["status"], f["cid"], f["ifname"], f["addresses"], f["dnses"], f["mtu"])
    rig.sim("fail", "RIL_REQUEST_SETUP_DATA_CALL", "ZOKRIL_E_FDN_CHECK_FAILURE")
    rig.post("EVENT_SETUP_DATA_CALL_REQ", size=704, text={256: "ims"}, i32={644: 2, 648: 2})
    print("second set-up: status", rig.wait("EVENT_SETUP_DATA_CALL_RESP")["fields"]["status"])
    try: rig.wait("EVENT_RADIO_POWER_RESP", 100)
    except LineError as e: print(e, "/ exit status", rig.close())
