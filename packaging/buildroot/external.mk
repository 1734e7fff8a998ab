include $(sort $(wildcard $(BR2_EXTERNAL_VANDIS_MORAINE_PATH)/package/*/*.mk))
