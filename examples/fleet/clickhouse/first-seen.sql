-- SPDX-FileCopyrightText: 2026 The vandis-moraine authors
-- SPDX-License-Identifier: MIT

-- When was TEXT first seen, on which device, and after how many lines without it? A time before 2000 is
-- that of a clock that was not set.
SELECT min(time) AS first, argMin(device, (time, device)) AS on_device,
       argMin(message, (time, device)) AS text, uniqExact(device) AS devices
FROM fleet.lines FINAL
WHERE message LIKE '%TEXT%' AND time >= '2000-01-01 00:00:00';
