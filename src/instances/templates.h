#pragma once

/// Everything that the instances are made of.

#include <QZ/QZBP>
#include <QZ/QZCOMB>
#include <QZ/QZDATA>
#include <QZ/QZGRAPH>
#include <QZ/QZINF>
#include <QZ/QZIO>
#include <QZ/QZMRF>
