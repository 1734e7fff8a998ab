-- SPDX-FileCopyrightText: 2026 The vandis-moraine authors
-- SPDX-License-Identifier: MIT

-- How often was TEXT logged by each firmware version, and on how many devices? The version is that of
-- the last line "firmware: version ..." before, in the order of the device's log.
SELECT if(empty(before), '', before[-1].2) AS version, count() AS lines, uniqExact(device) AS devices
FROM
(
    SELECT device, arrayFilter(v -> v.1 < hit, versions) AS before
    FROM
    (
        SELECT device,
               groupArrayIf((seen, row), message LIKE '%TEXT%') AS hits,
               arraySort(groupArrayIf(((seen, row), substring(message, 9)),
                                      tag = 'firmware' AND message LIKE 'version %')) AS versions
        FROM fleet.lines FINAL
        WHERE message LIKE '%TEXT%' OR tag = 'firmware' AND message LIKE 'version %'
        GROUP BY device
    )
    ARRAY JOIN hits AS hit
)
GROUP BY version
ORDER BY lines DESC, version;
