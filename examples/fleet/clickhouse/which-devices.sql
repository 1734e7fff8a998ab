-- SPDX-FileCopyrightText: 2026 The vandis-moraine authors
-- SPDX-License-Identifier: MIT

-- Which devices logged TEXT, how often, and when first and last?
SELECT device, count() AS lines, min(time) AS first, max(time) AS last
FROM fleet.lines FINAL
WHERE message LIKE '%TEXT%'
GROUP BY device
ORDER BY lines DESC, device;
