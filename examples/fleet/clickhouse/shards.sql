-- SPDX-FileCopyrightText: 2026 The vandis-moraine authors
-- SPDX-License-Identifier: MIT

-- After schema.sql, on each server of the cluster "fleet" (shards.xml): what it has is one shard, and
-- fleet.lines are all. A device's lines are on one shard, so that each shard keeps them once.
RENAME TABLE fleet.lines TO fleet.shard;

CREATE TABLE fleet.lines AS fleet.shard
ENGINE = Distributed(fleet, fleet, shard, sipHash64(device));
