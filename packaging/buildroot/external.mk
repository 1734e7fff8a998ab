# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

include $(sort $(wildcard $(BR2_EXTERNAL_VANDIS_MORAINE_PATH)/package/*/*.mk))
