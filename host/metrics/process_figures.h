#pragma once

#include "host/metrics/figures.h"

namespace tarvex::host {

ProcessFigures FiguresOfThisProcess();

}  // namespace tarvex::host
