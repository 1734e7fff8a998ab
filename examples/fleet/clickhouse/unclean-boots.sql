-- SPDX-FileCopyrightText: 2026 The vandis-moraine authors
-- SPDX-License-Identifier: MIT

-- Which boots ended without a shutdown? syslogd started, and what it logged of itself before was another
-- start, and not its end. Counts those of a syslogd that was killed, too.
SELECT device, events[number - 1].3 AS started, events[number].3 AS started_again
FROM
(
    SELECT device,
           arraySort(groupArray(((seen, row), message LIKE 'syslogd started%', time))) AS events
    FROM fleet.lines FINAL
    WHERE facility = 'syslog' AND tag = ''
        AND (message LIKE 'syslogd started%' OR message = 'syslogd exiting')
    GROUP BY device
)
ARRAY JOIN arrayEnumerate(events) AS number
WHERE number > 1 AND events[number].2 = 1 AND events[number - 1].2 = 1
ORDER BY device, number;
