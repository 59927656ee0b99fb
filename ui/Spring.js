.pragma library

// Springs given as response (seconds per undamped oscillation) and damping fraction
// (1 = critically damped), turned into what Qt Quick animations take: a duration and
// an Easing.BezierSpline curve that follows the spring's step response.
//
//   NumberAnimation {
//       duration: Spring.duration(0.5, 0.75)
//       easing.type: Easing.BezierSpline
//       easing.bezierCurve: Spring.curve(0.5, 0.75)
//   }

// How far from rest the spring may still be when the animation ends: invisible.
const restTolerance = 0.002;
const segments = 24;

function omega(response) {
    return 2 * Math.PI / Math.max(response, 0.001);
}

// Seconds until the spring stays within restTolerance of its target.
function settleTime(response, dampingFraction) {
    const w0 = omega(response);
    const zeta = Math.max(dampingFraction, 0.05);
    if (zeta >= 1)
        return Math.log(1 / restTolerance) * 1.4 / w0;
    const envelope = 1 / Math.sqrt(1 - zeta * zeta);
    return Math.log(envelope / restTolerance) / (zeta * w0);
}

function duration(response, dampingFraction) {
    return Math.round(settleTime(response, dampingFraction) * 1000);
}

// Position (0 at the start, 1 at rest) and velocity at time t, for a spring at rest at 0.
function state(t, response, dampingFraction) {
    const w0 = omega(response);
    const zeta = Math.max(dampingFraction, 0.05);
    if (zeta >= 1) {
        const e = Math.exp(-w0 * t);
        return { position: 1 - e * (1 + w0 * t), velocity: w0 * w0 * t * e };
    }
    const wd = w0 * Math.sqrt(1 - zeta * zeta);
    const e = Math.exp(-zeta * w0 * t);
    return {
        position: 1 - e * (Math.cos(wd * t) + (zeta * w0 / wd) * Math.sin(wd * t)),
        velocity: e * (w0 * w0 / wd) * Math.sin(wd * t)
    };
}

// Control points of a Bézier chain through the sampled response, on normalised time;
// each segment matches position and slope at both ends, so overshoot is kept.
function curve(response, dampingFraction) {
    const total = settleTime(response, dampingFraction);
    const h = 1 / segments;
    const points = [];
    let previous = state(0, response, dampingFraction);
    for (let i = 1; i <= segments; ++i) {
        const next = state(i * h * total, response, dampingFraction);
        const last = i === segments;
        const x0 = (i - 1) * h;
        const x1 = i * h;
        const y1 = last ? 1 : next.position;
        const slope0 = previous.velocity * total;
        const slope1 = last ? 0 : next.velocity * total;
        points.push(x0 + h / 3, previous.position + slope0 * h / 3,
                    x1 - h / 3, y1 - slope1 * h / 3,
                    x1, y1);
        previous = next;
    }
    return points;
}
