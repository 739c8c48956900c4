include $(sort $(wildcard $(BR2_EXTERNAL_TAVI_PATH)/package/*/*.mk))
