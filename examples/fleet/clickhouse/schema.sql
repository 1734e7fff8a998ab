-- SPDX-FileCopyrightText: 2026 The vandis-moraine authors
-- SPDX-License-Identifier: MIT

-- Of lines with the same key, that of the newest download is kept: an import may be repeated.
CREATE DATABASE IF NOT EXISTS fleet;

CREATE TABLE fleet.lines
(
    device   String,
    id       UInt64,            -- of the line's identity
    time     DateTime('UTC'),
    host     String,
    facility String,
    severity Enum8('' = -1, 'emerg' = 0, 'alert' = 1, 'crit' = 2, 'err' = 3, 'warning' = 4, 'notice' = 5,
                   'info' = 6, 'debug' = 7),
    tag      String,
    pid      UInt64,
    message  String,
    seen     DateTime('UTC'),   -- when the newest download with it was made. With `row`, the order of
    row      UInt64,            -- a device's log: what that download does not have any more is older
    boot     UInt16,
    file     String,
    line     UInt64
)
ENGINE = ReplacingMergeTree(seen)
PARTITION BY toYYYYMM(time)
ORDER BY (device, time, id);

-- What is inserted: the keys of a JSON line, and three before them. It stores nothing: each row goes on
-- into fleet.lines, with its identity.
CREATE TABLE fleet.incoming
(
    device   String,
    seen     DateTime('UTC'),
    row      UInt64,
    boot     UInt16,
    file     String,
    line     UInt64,
    time     DateTime('UTC'),   -- the device's local time
    host     String,
    facility String,
    severity Enum8('' = -1, 'emerg' = 0, 'alert' = 1, 'crit' = 2, 'err' = 3, 'warning' = 4, 'notice' = 5,
                   'info' = 6, 'debug' = 7),
    tag      String,
    pid      UInt64,
    message  String,
    cursor   String
)
ENGINE = Null;

CREATE MATERIALIZED VIEW fleet.arrival TO fleet.lines AS
SELECT device, sipHash64(substring(cursor, position(cursor, '-') + 1)) AS id, time, host, facility,
       severity, tag, pid, message, seen, row, boot, file, line
FROM fleet.incoming;
