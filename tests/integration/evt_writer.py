"""Writes classic event log backup files (.evt) from the publicly documented layout: a 48-byte
header, the records (each framed by its length at both ends), and the 40-byte end-of-file
record. Used to give the event log monitor files to read; `evtinfo` and `evtexport` check
them independently of the agent's reader."""
import struct

SIGNATURE = 0x654C664C  # "LfLe"


def _utf16z(text):
    return text.encode("utf-16-le") + b"\0\0"


def record(number, event_id, event_type=4, source="app", computer="host1", strings=(),
           data=b"", time=1700000000, category=0):
    body = _utf16z(source) + _utf16z(computer)
    while (56 + len(body)) % 4:
        body += b"\0"
    string_offset = 56 + len(body)
    text = b"".join(_utf16z(s) for s in strings)
    data_offset = string_offset + len(text)
    tail = text + data + b"\0" * (-(data_offset + len(data)) % 4)
    length = string_offset + len(tail) + 4
    head = struct.pack("<IIIIIIHHHHIIIIII", length, SIGNATURE, number, time, time, event_id,
                       event_type, len(strings), category, 0, 0, string_offset, 0, 0,
                       len(data), data_offset)
    return head + body + tail + struct.pack("<I", length)


def evt_file(records, first=1):
    """The bytes of a file holding `records` (from record()), numbered from `first`."""
    body = b"".join(records)
    end = 48 + len(body)
    next_number = first + len(records)
    header = struct.pack("<IIIIIIIIIIII", 48, SIGNATURE, 1, 1, 48, end, next_number, first,
                         0x80000, 0, 0, 48)
    eof = struct.pack("<IIIIIIIIII", 40, 0x11111111, 0x22222222, 0x33333333, 0x44444444, 48,
                      end, next_number, first, 40)
    return header + body + eof
