################################################################################
#
# serialcomm
#
################################################################################

SERIALCOMM_VERSION = v0.1.0
# Where your copy of the repository is; SERIALCOMM_OVERRIDE_SRCDIR in local.mk builds a folder instead.
SERIALCOMM_SITE = https://git.example.com/serialComm.git
SERIALCOMM_SITE_METHOD = git
SERIALCOMM_LICENSE = MIT
SERIALCOMM_LICENSE_FILES = LICENSE
SERIALCOMM_INSTALL_STAGING = YES
SERIALCOMM_DEPENDENCIES = log4cplus
SERIALCOMM_CONF_OPTS = -DCMAKE_SKIP_INSTALL_RPATH=ON

ifeq ($(BR2_PACKAGE_SERIALCOMM_TOOL),y)
SERIALCOMM_DEPENDENCIES += cli11 json-for-modern-cpp
SERIALCOMM_CONF_OPTS += -DSERIALCOMM_TOOL=ON
else
SERIALCOMM_CONF_OPTS += -DSERIALCOMM_TOOL=OFF
endif

ifeq ($(BR2_PACKAGE_LIBTRACEFS),y)
SERIALCOMM_DEPENDENCIES += libtraceevent libtracefs
SERIALCOMM_CONF_OPTS += -DSERIALCOMM_WATCH=ON
else
SERIALCOMM_CONF_OPTS += -DSERIALCOMM_WATCH=OFF
endif

$(eval $(cmake-package))
