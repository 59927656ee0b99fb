.pragma library

// Springs given as response (seconds per undamped oscillation) and damping fraction
// (1 = critically damped), turned into what Qt Quick animations take. An under-damped
// spring becomes Easing.OutBack with the spring's own overshoot, timed so that both
// peak at the same moment; a damped one eases out over the spring's settling time.

const restTolerance = 0.002;

function omega(response) {
    return 2 * Math.PI / Math.max(response, 0.001);
}

function clampDamping(dampingFraction) {
    return Math.max(dampingFraction, 0.05);
}

// How far past its target the spring swings, as a fraction of the distance.
function peakOvershoot(dampingFraction) {
    const zeta = clampDamping(dampingFraction);
    if (zeta >= 1)
        return 0;
    return Math.exp(-zeta * Math.PI / Math.sqrt(1 - zeta * zeta));
}

// The OutBack parameter whose curve overshoots by `fraction`: its peak is
// 4 s^3 / (27 (s + 1)^2), which grows with s, so bisect.
function backParameter(fraction) {
    let low = 0, high = 10;
    for (let i = 0; i < 40; ++i) {
        const s = (low + high) / 2;
        if (4 * s * s * s / (27 * (s + 1) * (s + 1)) < fraction)
            low = s;
        else
            high = s;
    }
    return (low + high) / 2;
}

function easingType(dampingFraction) {
    return clampDamping(dampingFraction) < 1 ? 34 /* Easing.OutBack */ : 6 /* Easing.OutCubic */;
}

function overshoot(dampingFraction) {
    return backParameter(peakOvershoot(dampingFraction));
}

// Milliseconds.
function duration(response, dampingFraction) {
    const w0 = omega(response);
    const zeta = clampDamping(dampingFraction);
    if (zeta >= 1)
        return Math.round(1000 * Math.log(1 / restTolerance) * zeta / w0);
    const s = overshoot(zeta);
    const springPeak = Math.PI / (w0 * Math.sqrt(1 - zeta * zeta));
    const backPeak = 1 - 2 * s / (3 * (s + 1));
    return Math.round(1000 * springPeak / backPeak);
}
