include $(sort $(wildcard $(BR2_EXTERNAL_HYBASE_PATH)/package/*/*.mk))
