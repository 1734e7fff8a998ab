-- SPDX-FileCopyrightText: 2026 The vandis-moraine authors
-- SPDX-License-Identifier: MIT

-- Which programs log the most, on average over the devices that have them?
SELECT tag, count() AS lines, sum(length(message)) AS bytes, uniqExact(device) AS devices,
       round(count() / uniqExact(device), 1) AS lines_each
FROM fleet.lines FINAL
GROUP BY tag
ORDER BY lines DESC, tag
LIMIT 20;
