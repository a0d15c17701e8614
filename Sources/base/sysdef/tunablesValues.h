#pragma once

/// The machine is network-attached storage; the system's flag word tells.
extern bool QD_AGENT_NAS;
