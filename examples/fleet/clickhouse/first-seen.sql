-- SPDX-FileCopyrightText: 2026 The vandis-moraine authors
-- SPDX-License-Identifier: MIT

-- When was TEXT first seen, on which device, and on how many since? The first hour of a year is left
-- out: a clock that is not set begins with it, and a line carries no year.
SELECT min(time) AS first, argMin(device, (time, device)) AS on_device,
       argMin(message, (time, device)) AS text, uniqExact(device) AS devices
FROM fleet.lines FINAL
WHERE message LIKE '%TEXT%' AND NOT (toDayOfYear(time) = 1 AND toHour(time) = 0);
